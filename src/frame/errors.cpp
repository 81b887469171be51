#include "kestrel/frame/errors.hpp"

#include <algorithm>
#include <iterator>
#include <string>

#include "kestrel/frame/unicode.hpp"

namespace kestrel {
namespace {

struct StandardError {
  int32_t number;
  std::u16string_view text;
};

// The runtime's own texts, sorted by number for binary search.
constexpr StandardError kStandardErrors[] = {
    {3, u"Return without GoSub"},
    {5, u"Invalid procedure call or argument"},
    {6, u"Overflow"},
    {7, u"Out of memory"},
    {9, u"Subscript out of range"},
    {10, u"This array is fixed or temporarily locked"},
    {11, u"Division by zero"},
    {13, u"Type mismatch"},
    {14, u"Out of string space"},
    {16, u"Expression too complex"},
    {17, u"Can't perform requested operation"},
    {18, u"User interrupt occurred"},
    {20, u"Resume without error"},
    {28, u"Out of stack space"},
    {35, u"Sub or Function not defined"},
    {47, u"Too many DLL application clients"},
    {48, u"Error in loading DLL"},
    {49, u"Bad DLL calling convention"},
    {51, u"Internal error"},
    {52, u"Bad file name or number"},
    {53, u"File not found"},
    {54, u"Bad file mode"},
    {55, u"File already open"},
    {57, u"Device I/O error"},
    {58, u"File already exists"},
    {59, u"Bad record length"},
    {61, u"Disk full"},
    {62, u"Input past end of file"},
    {63, u"Bad record number"},
    {67, u"Too many files"},
    {68, u"Device unavailable"},
    {70, u"Permission denied"},
    {71, u"Disk not ready"},
    {74, u"Can't rename with different drive"},
    {75, u"Path/File access error"},
    {76, u"Path not found"},
    {91, u"Object variable or With block variable not set"},
    {92, u"For loop not initialized"},
    {93, u"Invalid pattern string"},
    {94, u"Invalid use of Null"},
    {298, u"System DLL could not be loaded"},
    {321, u"Invalid file format"},
    {322, u"Can't create necessary temporary file"},
    {380, u"Invalid property value"},
    {381, u"Invalid property-array index"},
    {382, u"Set not supported at runtime"},
    {383, u"Set not supported (read-only property)"},
    {385, u"Need property-array index"},
    {387, u"Set not permitted"},
    {393, u"Get not supported at runtime"},
    {394, u"Get not supported (write-only property)"},
    {422, u"Property not found"},
    {423, u"Property or method not found"},
    {424, u"Object required"},
    {425, u"Invalid object use"},
    {429, u"ActiveX component can't create object"},
    {430, u"Class does not support Automation or does not support expected interface"},
    {432, u"File name or class name not found during Automation operation"},
    {438, u"Object doesn't support this property or method"},
    {440, u"Automation error"},
    {443, u"Automation object does not have a default value"},
    {445, u"Object doesn't support this action"},
    {446, u"Object doesn't support named arguments"},
    {447, u"Object doesn't support current locale setting"},
    {448, u"Named argument not found"},
    {449, u"Argument not optional"},
    {450, u"Wrong number of arguments or invalid property assignment"},
    {451, u"Property let procedure not defined and property get procedure did not return an object"},
    {452, u"Invalid ordinal"},
    {453, u"Specified DLL function not found"},
    {457, u"This key is already associated with an element of this collection"},
    {459, u"Object or class does not support the set of events"},
    {461, u"Method or data member not found"},
    {463, u"Class not registered on local machine"},
    {735, u"Can't save file to TEMP"},
    {744, u"Search text not found"},
    {746, u"Replacements too long"},
    {32811, u"Element not found"},
};

constexpr std::u16string_view kUnknownErrorText = u"Application-defined or object-defined error";

}  // namespace

std::u16string_view StandardErrorText(int32_t number) noexcept {
  auto it = std::lower_bound(std::begin(kStandardErrors), std::end(kStandardErrors), number,
                             [](const StandardError& e, int32_t n) { return e.number < n; });
  if (it != std::end(kStandardErrors) && it->number == number) return it->text;
  return kUnknownErrorText;
}

RuntimeError::RuntimeError(int32_t number, std::u16string source, std::u16string description,
                           std::u16string help_file, int32_t help_context,
                           int32_t last_dll_error)
    : number_(number),
      source_(std::move(source)),
      description_(std::move(description)),
      help_file_(std::move(help_file)),
      help_context_(help_context),
      last_dll_error_(last_dll_error),
      what_("Error " + std::to_string(number) + ": " + ToUtf8(description_)) {}

void RaiseStandard(int32_t number) {
  throw RuntimeError(number, std::u16string(kStandardErrorSource),
                     std::u16string(StandardErrorText(number)));
}

void Raise(int32_t number, std::u16string_view source, std::u16string_view description) {
  if (description.empty()) description = StandardErrorText(number);
  throw RuntimeError(number, std::u16string(source), std::u16string(description));
}

}  // namespace kestrel
