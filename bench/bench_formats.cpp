// Speed of the file formats: a task file of 1,000 steps written and read, plain and encrypted,
// and the throughput of text scrambling.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/Clock.h"
#include "platform/Random.h"
#include "storage/EncStr.h"
#include "storage/TaskFile.h"

namespace {

vq::TaskFileData TaskOfSteps(int count) {
    vq::TaskFileData task = vq::NewTaskFile("bench", "HOST", "user", "2026-11-22 12:00:00");
    for (int i = 1; i <= count; ++i) {
        vq::TaskStep step =
            vq::NewTaskStep("make -C /home/user/project target" + std::to_string(i), i);
        step.WorkingDirectory = "/home/user/project";
        step.Environment = "PATH=/usr/bin\r\nLANG=C";
        task.steps.push_back(step);
    }
    return task;
}

std::string BenchFile(const char* name) {
    return (std::filesystem::temp_directory_path() /
            (std::string("vq_bench_") + std::to_string(::getpid()) + name))
        .string();
}

void WriteTaskFile(benchmark::State& state) {
    const bool encrypted = state.range(0) != 0;
    const vq::TaskFileData task = TaskOfSteps(1000);
    const std::string path = BenchFile(encrypted ? "_w.evqf" : "_w.vqf");
    for (auto _ : state) {
        if (!vq::SaveTaskFile(path, task, encrypted)) state.SkipWithError("write failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(std::filesystem::file_size(path)));
    std::filesystem::remove(path);
}
BENCHMARK(WriteTaskFile)->Arg(0)->Arg(1)->ArgName("encrypted")->Unit(benchmark::kMillisecond);

void ReadTaskFile(benchmark::State& state) {
    const bool encrypted = state.range(0) != 0;
    const std::string path = BenchFile(encrypted ? "_r.evqf" : "_r.vqf");
    vq::SaveTaskFile(path, TaskOfSteps(1000), encrypted);
    vq::SystemClock clock;
    vq::TaskFileData task;
    std::string error;
    for (auto _ : state) {
        if (!vq::LoadTaskFile(clock, path, task, error)) state.SkipWithError(error.c_str());
        benchmark::DoNotOptimize(task.steps.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(std::filesystem::file_size(path)));
    std::filesystem::remove(path);
}
BENCHMARK(ReadTaskFile)->Arg(0)->Arg(1)->ArgName("encrypted")->Unit(benchmark::kMillisecond);

std::string Payload(size_t size) {
    vq::SeededRandom random(1);
    std::string text(size, '\0');
    random.Fill(reinterpret_cast<uint8_t*>(text.data()), size);
    return text;
}

void EncodeEncStr(benchmark::State& state) {
    const std::string text = Payload(static_cast<size_t>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(vq::EncodeEncStr(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(EncodeEncStr)->Arg(60)->Arg(4096)->Arg(1 << 20);

void DecodeEncStr(benchmark::State& state) {
    const std::string encoded = vq::EncodeEncStr(Payload(static_cast<size_t>(state.range(0))));
    for (auto _ : state) benchmark::DoNotOptimize(vq::DecodeEncStr(encoded));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(DecodeEncStr)->Arg(60)->Arg(4096)->Arg(1 << 20);

}  // namespace

BENCHMARK_MAIN();
