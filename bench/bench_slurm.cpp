// Steps through the Slurm cluster against steps through the local runner, with a real server:
// one task of N steps that run `true` (200 unless given), on each backend in turn. Prints the
// steps per minute of each and the server's CPU per step, from /proc of the vqserv process (its
// own time, and with the runners it reaped, which is where the Slurm commands' time lands).
// The server runs one task at a time, so the steps follow each other.
//   bench_slurm [STEPS] [TICK_MS]      (Slurm: SLURM_CONF pointing at a cluster that runs)
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

const fs::path kBin = fs::read_symlink("/proc/self/exe").parent_path();

pid_t Spawn(const std::vector<std::string>& args, const std::string& outPath) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

std::string ReadText(const fs::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

struct Run {
    int status = -1;
    std::string out;
};

// Runs a program to its end; its output and errors together.
Run RunToEnd(const std::vector<std::string>& args, const fs::path& folder) {
    const std::string outPath = (folder / "command.out").string();
    Run run;
    const pid_t pid = Spawn(args, outPath);
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) run.status = WEXITSTATUS(status);
    run.out = ReadText(outPath);
    return run;
}

Run Vqctl(std::vector<std::string> args, const fs::path& folder) {
    args.insert(args.begin(), (kBin / "vqctl").string());
    return RunToEnd(args, folder);
}

// CPU seconds of a process: its own, and those of the children it reaped.
struct CpuTimes {
    double own = 0, withChildren = 0;
};

CpuTimes ProcessCpu(pid_t pid) {
    const std::string stat = ReadText("/proc/" + std::to_string(pid) + "/stat");
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string skip;
    for (int field = 3; field < 14; ++field) fields >> skip;  // state .. cmajflt
    long utime = 0, stime = 0, cutime = 0, cstime = 0;
    fields >> utime >> stime >> cutime >> cstime;
    const double tick = static_cast<double>(sysconf(_SC_CLK_TCK));
    return {(utime + stime) / tick, (utime + stime + cutime + cstime) / tick};
}

bool WaitFor(const auto& done, int limitMs) {
    const auto end = Clock::now() + std::chrono::milliseconds(limitMs);
    while (!done()) {
        if (Clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

void StopProcess(pid_t pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    if (!WaitFor([&] { return waitpid(pid, nullptr, WNOHANG) == pid; }, 10000)) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

struct Result {
    bool ok = false;
    std::string problem;
    double seconds = 0;
    CpuTimes cpu;
};

// A temporary folder with the settings, home, session bus and queue of one server, and the
// processes that use them; all of it ended and removed at the end.
struct ServerFolder {
    ServerFolder() {
        std::string pattern = (fs::temp_directory_path() / "vqbench-slurm.XXXXXX").string();
        if (!mkdtemp(pattern.data())) std::abort();
        path = pattern;
        fs::create_directories(path / "home");
    }
    ~ServerFolder() {
        StopProcess(server);
        StopProcess(bus);
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    ServerFolder(const ServerFolder&) = delete;
    ServerFolder& operator=(const ServerFolder&) = delete;

    fs::path path;
    pid_t bus = -1, server = -1;
};

// One task of `steps` steps on `backend`, through a server of its own.
Result RunSteps(const std::string& backend, int steps, const std::string& tickMs) {
    ServerFolder f;
    const fs::path& folder = f.path;
    setenv("XDG_CONFIG_HOME", (folder / "cfg").c_str(), 1);
    setenv("HOME", (folder / "home").c_str(), 1);
    setenv("VQS_TICK_MS", tickMs.c_str(), 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (folder / "bus").string()).c_str(), 1);
    Result result;
    const auto fail = [&](const std::string& problem) {
        result.problem = problem;
        return result;
    };

    f.bus = Spawn({"dbus-daemon", "--session", "--nofork", "--address=unix:path=" + (folder / "bus").string()},
                  (folder / "bus.out").string());
    if (!WaitFor([&] { return fs::exists(folder / "bus"); }, 5000)) return fail("the session bus did not start");
    for (const auto& [name, value] : {std::pair{"Backend", backend}, {"PollSeconds", "1"}})
        if (const Run set = Vqctl({"config", "set", "Cluster", name, value}, folder); set.status != 0)
            return fail("vqctl config set: " + set.out);
    std::vector<std::string> newTask = {"new-task", "--name", "Bench"};
    for (int s = 0; s < steps; ++s) newTask.insert(newTask.end(), {"--step", "true"});
    newTask.push_back((folder / "Bench.vqf").string());
    if (const Run made = Vqctl(newTask, folder); made.status != 0) return fail("vqctl new-task: " + made.out);

    f.server = Spawn({(kBin / "vqserv").string(), "--headless", "--queue-root", (folder / "queue").string() + "/"},
                     (folder / "vqserv.out").string());
    if (!WaitFor([&] { return Vqctl({"location"}, folder).status == 0; }, 10000))
        return fail("vqserv did not answer: " + ReadText(folder / "vqserv.out"));

    const CpuTimes before = ProcessCpu(f.server);
    const auto start = Clock::now();
    const Run submitted = Vqctl({"submit", (folder / "Bench.vqf").string()}, folder);
    if (submitted.status != 0) return fail("vqctl submit: " + submitted.out);
    const std::string key = submitted.out.substr(0, submitted.out.find('\n'));
    const Run waited = Vqctl({"wait", key}, folder);
    result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const CpuTimes after = ProcessCpu(f.server);
    result.cpu = {after.own - before.own, after.withChildren - before.withChildren};
    const std::string report = Vqctl({"report", key}, folder).out;
    if (waited.status != 0) return fail("the task did not end well:\n" + report);

    // Every step must have gone where it was meant to.
    int jobs = 0;
    for (size_t at = report.find("Slurm job "); at != std::string::npos; at = report.find("Slurm job ", at + 1)) ++jobs;
    if (jobs != (backend == "slurm" ? steps : 0))
        return fail(std::to_string(jobs) + " of " + std::to_string(steps) + " steps went to Slurm");
    result.ok = true;
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    const int steps = argc > 1 ? std::atoi(argv[1]) : 200;
    const std::string tickMs = argc > 2 ? argv[2] : "50";
    if (steps < 1 || std::atoi(tickMs.c_str()) < 1) {
        std::fprintf(stderr, "usage: bench_slurm [STEPS] [TICK_MS]\n");
        return 2;
    }
    std::printf("%d steps of `true` in one task; server tick %s ms; Slurm poll every 1 s\n", steps, tickMs.c_str());
    std::printf("%-8s %10s %9s %22s %26s\n", "backend", "steps/min", "wall s", "server CPU ms/step",
                "with its runners ms/step");
    int failures = 0;
    for (const std::string backend : {"local", "slurm"}) {
        const Result r = RunSteps(backend, steps, tickMs);
        if (!r.ok) {
            std::printf("%-8s failed: %s\n", backend.c_str(), r.problem.c_str());
            ++failures;
            continue;
        }
        std::printf("%-8s %10.1f %9.1f %22.2f %26.2f\n", backend.c_str(), steps * 60.0 / r.seconds, r.seconds,
                    r.cpu.own * 1000.0 / steps, r.cpu.withChildren * 1000.0 / steps);
        std::fflush(stdout);
    }
    return failures == 0 ? 0 : 1;
}
