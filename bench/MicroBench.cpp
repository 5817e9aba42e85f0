// What the parts of a request cost inside the process, without a kernel in between: decoding,
// looking up, encoding, posting.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Class.h"
#include "Platform/NSNotificationCenter.h"
#include "Platform/NSXPCConnection.h"
#include "Platform/linux/CborReader.h"
#include "Platform/linux/WireValue.h"
#include "bench/Wire.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin {

namespace {

using platform::CborReader;
using platform::Dictionary;
using platform::NSNotification;
using platform::NSNotificationCenter;
using platform::Value;
using platform::ValueArray;

void lookingUpASelector(benchmark::State& state) {
    const platform::Protocol& protocol = VeloraSwitchboarding_private::protocol();
    for (auto _ : state) {
        benchmark::DoNotOptimize(protocol.method("queryEndpointForIdentifier:withReply:"));
    }
}
BENCHMARK(lookingUpASelector);

// The method behind a message, in a class with all methods of the protocol, and one that the class
// only inherits.
void lookingUpAMethod(benchmark::State& state) {
    const platform::Class::Method nothing = [](platform::Object*, platform::Invocation&) {
        return Value();
    };
    platform::Class::MethodTable methods;
    for (const auto* method : VeloraSwitchboarding_private::protocol().allMethods())
        methods[method->selector] = nothing;
    platform::Class base("MicroBenchBase", nullptr, {{"redact", nothing}});
    const platform::Class derived("MicroBenchDerived", &base, std::move(methods));
    const std::string_view selector =
        state.range(0) == 0 ? "queryEndpointForIdentifier:withReply:" : "redact";
    for (auto _ : state) {
        benchmark::DoNotOptimize(derived.instanceMethod(selector));
    }
}
BENCHMARK(lookingUpAMethod)->ArgName("inherited")->Arg(0)->Arg(1);

void decodingAPost(benchmark::State& state) {
    const std::string frame = bench::post("com.example.backup.progress", "com.example.backup");
    const std::string_view body = std::string_view(frame).substr(16);
    for (auto _ : state) {
        CborReader reader(body);
        Value value;
        const bool isFine = platform::wire::readValue(reader, value, nullptr);
        if (!isFine) state.SkipWithError("the frame does not decode");
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(decodingAPost);

void encodingACallForMany(benchmark::State& state) {
    const platform::MethodDescription& method = *SwitchboardSubscribing::protocol().method(
        "forwardToObserver:notification:fromSource:withInfo:");
    const ValueArray rest{"com.example.backup.progress", "com.example.backup",
                          Dictionary{{"id", "com.example.backup.agent"}, {"count", 42}}};
    for (auto _ : state) {
        benchmark::DoNotOptimize(platform::EncodedCall(method, rest));
    }
}
BENCHMARK(encodingACallForMany);

// A post to `range` observers of its name, with ten thousand of other names registered: the time is
// per observer told.
void postingToObservers(benchmark::State& state) {
    NSNotificationCenter center;
    std::size_t told = 0;
    for (int i = 0; i < 10000; ++i) {
        (void)center.addObserver("other." + std::to_string(i), std::nullopt,
                                 [](const NSNotification&) {});
    }
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        (void)center.addObserver("wanted", std::nullopt,
                                 [&told](const NSNotification&) { ++told; });
    }
    for (auto _ : state) {
        center.postNotificationNameObjectUserInfo("wanted", "source", Value());
    }
    state.counters["per observer"] = benchmark::Counter(
        static_cast<double>(told), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(postingToObservers)->Arg(1)->Arg(1000);

}  // namespace

}  // namespace sevrin

BENCHMARK_MAIN();
