// The cost of one step through the step runner link: launch of runlet, the start exchange,
// "STAT", "END " and the runner's exit, for a step that runs `true`; beside it /bin/true
// launched bare as the server launches its runner (posix_spawn), measured in the same run. The
// ratio of the two is printed last, also under --benchmark_repetitions.
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "bench/BareTrue.h"
#include "core/Server.h"
#include "platform/Files.h"
#include "platform/HeadlessOperator.h"
#include "runner/RunnerLink.h"

namespace {

void BM_BareSpawnWait(benchmark::State& state) {
    for (auto _ : state)
        if (!vq::bench::BareTrue()) state.SkipWithError("true failed");
}
BENCHMARK(BM_BareSpawnWait)->UseRealTime()->MinTime(2.0);

// A server of its own, in a temporary folder, with the runner beside this program.
struct LinkBench {
    LinkBench() {
        char pattern[] = "/tmp/vqbench.XXXXXX";
        folder = std::string(::mkdtemp(pattern)) + "/";
        registry = std::make_unique<vq::Registry>(folder + "registry.db", folder + "autostart");
        server = std::make_unique<vq::Server>(clock, op, *registry, screen);
        server->RunnerPath = vq::ProgramFolder() + "runlet";
        vq::RunnerLink& link = server->link;
        link.start.TaskId = 1;
        link.start.StepNumber = 1;
        link.start.UserName = "$LOCALUSER$";
        link.start.TaskName = "Bench";
        link.start.WorkDir = folder;
        link.start.OutputFile = folder + "Step1.txt";
        link.commandText = "true";
    }
    ~LinkBench() {
        server.reset();
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    std::string folder;
    vq::SystemClock clock;
    vq::HeadlessOperator op;
    vq::Screen screen;
    std::unique_ptr<vq::Registry> registry;
    std::unique_ptr<vq::Server> server;
};

// One step after another through the link to the runner `runnerName` beside this program.
void RunSteps(benchmark::State& state, const std::string& runnerName) {
    LinkBench bench;
    vq::Server& server = *bench.server;
    server.RunnerPath = vq::ProgramFolder() + runnerName;
    if (!vq::PathExists(server.RunnerPath)) {
        state.SkipWithError((runnerName + " is not built beside this program").c_str());
        return;
    }
    for (auto _ : state) {
        server.link.currentSlot = 1;
        vq::OpenRunner(server);
        vq::SendRunnerCommand(server, 1, "STAT");
        vq::SendRunnerCommand(server, 1, "END ");
        if (server.link.reply.StepRc != 1 || server.link.slots[1].pid != -1) {
            state.SkipWithError(
                ("the step did not end as it should: " + server.link.ReplyText).c_str());
            break;
        }
    }
}

void BM_LinkStepOfTrue(benchmark::State& state) { RunSteps(state, "runlet"); }
BENCHMARK(BM_LinkStepOfTrue)->UseRealTime()->MinTime(2.0);

// The same conversation with the tests' fake runner, which starts no command and reads no
// counters: what the server's side of the link costs by itself.
void BM_LinkStepOfFakeRunner(benchmark::State& state) { RunSteps(state, "vqfakerunner"); }
BENCHMARK(BM_LinkStepOfFakeRunner)->UseRealTime()->MinTime(2.0);

// Keeps the time per iteration of each benchmark, so that the ratio can be printed at the end:
// over all its repetitions, or from their mean when only the aggregates are reported.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.iterations <= 0 || run.error_occurred) continue;
            Sum& sum = sums_[run.run_name.function_name];
            if (run.run_type == Run::RT_Iteration) {
                sum.seconds += run.real_accumulated_time;
                sum.iterations += static_cast<double>(run.iterations);
            } else if (run.aggregate_name == "mean") {
                sum.meanPerIteration =
                    run.real_accumulated_time / static_cast<double>(run.iterations);
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    // Seconds per iteration, or 0 when the benchmark didn't run.
    double PerIteration(const std::string& name) const {
        const auto it = sums_.find(name);
        if (it == sums_.end()) return 0;
        return it->second.iterations > 0 ? it->second.seconds / it->second.iterations
                                         : it->second.meanPerIteration;
    }

  private:
    struct Sum {
        double seconds = 0, iterations = 0, meanPerIteration = 0;
    };
    std::map<std::string, Sum> sums_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const double bare = reporter.PerIteration("BM_BareSpawnWait");
    const double link = reporter.PerIteration("BM_LinkStepOfTrue");
    const double fake = reporter.PerIteration("BM_LinkStepOfFakeRunner");
    if (bare <= 0) return 0;
    std::printf("bare posix_spawn/wait of /bin/true: %.0f us\n", bare * 1e6);
    if (link > 0)
        std::printf(
            "step of true through the link and runlet: %.0f us, ratio %.2f (goal below 3)\n",
            link * 1e6, link / bare);
    if (fake > 0)
        std::printf("step through the link to a runner that runs nothing: %.0f us, ratio %.2f\n",
                    fake * 1e6, fake / bare);
    benchmark::Shutdown();
    return 0;
}
