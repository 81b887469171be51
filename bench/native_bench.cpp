// Native calls against calling the function yourself: a six-argument
// function of a C library loaded at run time, called
//   through CallPTR.CallFunction (arguments already added),
//   through CallPTR.CallDLLFunctionByName (symbol looked up on every call),
//   directly through a function pointer of its exact type,
//   through a bare ffi_call with a cif prepared once,
// in the same run. Each case runs five times and the ratio is taken between
// medians.
//   build/rel/bench/native_bench
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <ffi.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "kestrel/native/call_ptr.hpp"
#include "ratio_reporter.hpp"

namespace {

constexpr char kLibrary[] = KESTREL_NATIVE_BENCH_LIB;
constexpr char kFunction[] = "kt_args6";
using Six = int64_t (*)(int64_t, const void*, int64_t, const void*, int64_t, const void*);
constexpr int64_t kArgs[6] = {1, 0x1000, 3, 0x4000, 5, 0x6000};

void* Symbol() {
  static void* const symbol = [] {
    void* module = ::dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
    void* s = module != nullptr ? ::dlsym(module, kFunction) : nullptr;
    if (s == nullptr) {
      std::fprintf(stderr, "cannot load %s from %s\n", kFunction, kLibrary);
      std::exit(1);
    }
    return s;
  }();
  return symbol;
}

void PrepareCall(kestrel::CallPTR& call) {
  call.LoadDLL(std::string(kLibrary));
  for (int64_t a : kArgs) call.AddParameter(a);
}

void CallFunctionKestrel(benchmark::State& state) {
  kestrel::CallPTR call;
  PrepareCall(call);
  call.SetFunctionAddress(reinterpret_cast<intptr_t>(Symbol()));
  for (auto _ : state) benchmark::DoNotOptimize(call.CallFunction());
}

void ByNameKestrel(benchmark::State& state) {
  kestrel::CallPTR call;
  PrepareCall(call);
  const std::string name = kFunction;
  for (auto _ : state) benchmark::DoNotOptimize(call.CallDLLFunctionByName(name));
}

void Direct(benchmark::State& state) {
  Six six = reinterpret_cast<Six>(Symbol());
  for (auto _ : state) {
    // Through a pointer the optimiser cannot see into, as a caller with a
    // looked-up address would.
    benchmark::DoNotOptimize(six);
    benchmark::DoNotOptimize(six(kArgs[0], reinterpret_cast<const void*>(kArgs[1]), kArgs[2],
                                 reinterpret_cast<const void*>(kArgs[3]), kArgs[4],
                                 reinterpret_cast<const void*>(kArgs[5])));
  }
}

void BareFfi(benchmark::State& state) {
  ffi_type* types[6];
  void* values[6];
  int64_t args[6];
  for (int i = 0; i < 6; ++i) {
    types[i] = &ffi_type_sint64;
    args[i] = kArgs[i];
    values[i] = &args[i];
  }
  ffi_cif cif;
  if (ffi_prep_cif(&cif, FFI_DEFAULT_ABI, 6, &ffi_type_sint64, types) != FFI_OK) {
    state.SkipWithError("ffi_prep_cif failed");
    return;
  }
  void* function = Symbol();
  for (auto _ : state) {
    ffi_arg result;
    ffi_call(&cif, FFI_FN(function), &result, values);
    benchmark::DoNotOptimize(result);
  }
}

void Repeated(benchmark::internal::Benchmark* b) {
  b->Repetitions(5)->DisplayAggregatesOnly(true)->Unit(benchmark::kNanosecond);
}

// Each baseline is registered under both cases, so that each gets its ratios.
BENCHMARK(CallFunctionKestrel)->Name("CallFunction6/kestrel")->Apply(Repeated);
BENCHMARK(Direct)->Name("CallFunction6/direct")->Apply(Repeated);
BENCHMARK(BareFfi)->Name("CallFunction6/ffi_call")->Apply(Repeated);
BENCHMARK(ByNameKestrel)->Name("CallDLLFunctionByName6/kestrel")->Apply(Repeated);
BENCHMARK(Direct)->Name("CallDLLFunctionByName6/direct")->Apply(Repeated);
BENCHMARK(BareFfi)->Name("CallDLLFunctionByName6/ffi_call")->Apply(Repeated);

}  // namespace

KESTREL_BENCHMARK_MAIN();
