// SPDX-License-Identifier: Apache-2.0
// The main() of all benches. Only errors are logged, on standard error, so that standard output
// contains only the results.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <host/control.h>
#include <sys/resource.h>

#include <cstdio>

namespace {

// The benches have more buffers than the usual limit for descriptors permits.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    (void)setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main(int argc, char** argv) {
    raiseDescriptorLimit();
    qoz::host::setLogSink([](const qoz::host::LogLine& line) {
        if (line.priority >= ANDROID_LOG_ERROR) std::fprintf(stderr, "%s\n", line.text.c_str());
    });
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
