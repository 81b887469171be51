// The Simple MAPI records that MAPI32 and MAPI32PTR build from a Message,
// kept inside the object that builds them so that their addresses stay
// valid for the call and after it.
#pragma once

#include <vector>

#include "kestrel/containers/byte_store.hpp"
#include "kestrel/mail/message.hpp"
#include "kestrel/mail/simple_mapi.h"

namespace kestrel::detail {

struct MapiRecords {
  MapiMessage message{};
  MapiRecipDesc originator{};
  std::vector<MapiRecipDesc> recipients;
  std::vector<MapiFileDesc> files;

  // Fills the records from `m` (91 when it is Nothing, 13 when a list holds
  // something else), every text as an ANSI copy in `strings` (an empty
  // text as a null pointer), and returns the message record's address.
  int64_t Build(const Message* m, ByteStore& strings);
};

}  // namespace kestrel::detail
