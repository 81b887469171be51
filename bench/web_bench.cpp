// WEB and MultiformPost against what a user would otherwise reach for, both
// talking to the same loopback test server (tests/web/http_test_server.py):
//
//   PostFile10MiB   AddFile + Post of a 10 MiB file holding every byte
//                   value, against the curl command line's `-F field=@file`
//                   of the same file (a process per upload, as a script
//                   would run it). The server reads the body and discards
//                   it, so the client's side is what differs.
//   HttpgetRoundTrip  WEB.HTTPGET, against a bare libcurl easy request
//                   doing the same empty POST with a handle of its own.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdint>
#include <string>

#include "bench_data.hpp"
#include "kestrel/frame/unicode.hpp"
#include "kestrel/runtime/registry.hpp"
#include "kestrel/web/web.hpp"
#include "ratio_reporter.hpp"
#include "test_server.hpp"

namespace {

using kestrel::testing::TestServer;

constexpr size_t kFileSize = size_t{10} << 20;

const std::string& UploadFile() {
  static const std::string path = [] {
    auto bytes = kestrel::bench::BigByteArray().Bytes().first(kFileSize);
    return kestrel::bench::TemporaryInputFile(
        std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  }();
  return path;
}

std::string Url(const std::string& path) {
  return kestrel::ToUtf8(TestServer::Http().Url(path));
}

void PostFileKestrel(benchmark::State& state) {
  const std::u16string file = kestrel::FromUtf8(UploadFile());
  const std::u16string url = TestServer::Http().Url("/discard");
  kestrel::web::MultiformPost form;
  for (auto _ : state) {
    form.NewRequest();
    form.AddFile(u"up", file);
    benchmark::DoNotOptimize(form.Post(url));
  }
}

void PostFileCurlCli(benchmark::State& state) {
  std::string curl = "curl";
  std::string silent = "-sf";
  std::string out_flag = "-o";
  std::string out = "/dev/null";
  std::string form_flag = "-F";
  std::string field = "up=@" + UploadFile();
  std::string url = Url("/discard");
  char* argv[] = {curl.data(),      silent.data(), out_flag.data(), out.data(),
                  form_flag.data(), field.data(),  url.data(),      nullptr};
  for (auto _ : state) {
    pid_t pid = 0;
    if (posix_spawnp(&pid, "curl", nullptr, nullptr, argv, environ) != 0) {
      state.SkipWithError("cannot start curl");
      return;
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      state.SkipWithError("curl failed");
      return;
    }
  }
}

void HttpgetKestrel(benchmark::State& state) {
  const std::u16string url = TestServer::Http().Url("/discard");
  auto& web = kestrel::GlobalInstance<kestrel::web::WEB>();
  for (auto _ : state) benchmark::DoNotOptimize(web.HTTPGET(url));
}

size_t Collect(char* data, size_t size, size_t count, void* out) {
  static_cast<std::string*>(out)->append(data, size * count);
  return size * count;
}

void HttpgetLibcurl(benchmark::State& state) {
  const std::string url = Url("/discard");
  curl_global_init(CURL_GLOBAL_DEFAULT);
  for (auto _ : state) {
    std::string body;
    CURL* h = curl_easy_init();
    curl_easy_setopt(h, CURLOPT_URL, url.c_str());
    curl_easy_setopt(h, CURLOPT_POSTFIELDS, "");
    curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE, 0L);
    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, &Collect);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, &body);
    curl_easy_perform(h);
    curl_easy_cleanup(h);
    benchmark::DoNotOptimize(body);
  }
}

// Times are wall-clock (what the ratio compares): the baselines spend theirs
// in another process or waiting on the socket. The runs stop once they have
// taken five times the minimum time, since their CPU time hardly grows.
BENCHMARK(PostFileKestrel)->Name("PostFile10MiB/kestrel")->Unit(benchmark::kMillisecond);
BENCHMARK(PostFileCurlCli)->Name("PostFile10MiB/curl_cli")->Unit(benchmark::kMillisecond);
BENCHMARK(HttpgetKestrel)->Name("HttpgetRoundTrip/kestrel")->Unit(benchmark::kMicrosecond);
BENCHMARK(HttpgetLibcurl)->Name("HttpgetRoundTrip/libcurl")->Unit(benchmark::kMicrosecond);

}  // namespace

KESTREL_BENCHMARK_MAIN();
