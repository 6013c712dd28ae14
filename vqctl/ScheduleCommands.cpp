// vqctl next-runs and next-run-time: the schedule calculation of the server, run here, so that
// a user can check a calendar before submitting it and see why a task did or did not run.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <set>
#include <string>

#include "calendar/Common.h"
#include "calendar/DateTime.h"
#include "calendar/MUrnik.h"
#include "platform/Clock.h"
#include "platform/Error.h"
#include "platform/Files.h"
#include "storage/Classes.h"
#include "storage/Registry.h"
#include "storage/Settings.h"
#include "storage/TaskFile.h"
#include "vqctl/Commands.h"

namespace vqctl {
namespace {

// A command's failure: its message, and the exit code.
struct Failure {
    std::string message;
    int exitCode;
};

// The days of a holidays file, one quoted date a line, as "yyyy-mm-dd".
std::set<std::string> ReadHolidays(const std::string& path) {
    std::string text;
    if (!vq::ReadWholeFile(path, text)) throw Failure{"cannot read the holidays file " + path, 1};
    std::set<std::string> days;
    size_t from = 0;
    for (int line = 1; from < text.size(); ++line) {
        size_t end = text.find('\n', from);
        if (end == std::string::npos) end = text.size();
        std::string date = vq::Trim(text.substr(from, end - from));
        from = end + 1;
        if (!date.empty() && date.back() == '\r') date.pop_back();
        if (date.size() >= 2 && date.front() == '"' && date.back() == '"')
            date = date.substr(1, date.size() - 2);
        if (vq::Trim(date).empty()) continue;
        vq::VqDate day = 0;
        if (!vq::TryReadDate(date, day))
            throw Failure{path + " line " + std::to_string(line) + ": not a date: '" + date + "'", 1};
        days.insert(vq::FormatDateOnly(day));
    }
    return days;
}

// The holidays of `path`; without one, those of the queue's NonWork.dat, if there is one.
vq::NonWorkTest Holidays(const std::string& path) {
    std::string file = path;
    if (file.empty()) {
        std::string root;
        try {
            vq::Registry registry(vq::Registry::DefaultDatabasePath(),
                                  vq::Registry::DefaultAutostartDir());
            root = vq::GetSettingText(registry, "ServerSettings", "ServPath");
        } catch (const std::exception& e) {
            throw Failure{std::string("cannot read the queue's place from the settings: ") +
                              e.what() + " (give the holidays with --nonwork)",
                          1};
        }
        if (root.empty()) return [](vq::VqDate) { return false; };
        file = vq::WithBackslash(root) + "$JobQ/" + vq::kNonWorkFileName;
        if (!vq::PathExists(file)) return [](vq::VqDate) { return false; };
    }
    auto days = std::make_shared<std::set<std::string>>(ReadHolidays(file));
    return [days](vq::VqDate date) { return days->count(vq::FormatDateOnly(date)) > 0; };
}

vq::VqDate DateOption(const std::string& option, const std::string& text) {
    vq::VqDate date = 0;
    if (!vq::TryReadDate(text, date))
        throw Failure{option + " takes \"yyyy-mm-dd hh:mm:ss\" or 0: '" + text + "'", 2};
    return date;
}

vq::RepeatRule RuleOption(const std::string& text) {
    try {
        return vq::ParseRepeat(text);
    } catch (const vq::VqError& e) {
        throw Failure{std::string("--repeat: ") + e.what(), 2};
    }
}

const char* Flag(bool value) { return value ? "true" : "false"; }

int Report(const char* command, const Failure& failure) {
    std::fprintf(stderr, "vqctl %s: %s\n", command, failure.message.c_str());
    return failure.exitCode;
}

struct NextRunTimeArgs {
    std::string now, current = "0", scheduled, repeat, nonwork;
};

int NextRunTimeCommand(const NextRunTimeArgs& args) {
    try {
        vq::SystemClock clock;
        const vq::VqDate now = args.now.empty() ? clock.Now() : DateOption("--now", args.now);
        const vq::RunPlan plan =
            vq::NextRunTime(now, DateOption("--current", args.current),
                            DateOption("--scheduled", args.scheduled), RuleOption(args.repeat),
                            Holidays(args.nonwork));
        std::printf("NextSchedule=%s\nNextRun=%s\nRunCount=%d\nRunNow=%s\nMore=%s\n",
                    vq::FormatDateTime(plan.NextSchedule).c_str(),
                    vq::FormatDateTime(plan.NextRun).c_str(), plan.RunCount, Flag(plan.RunNow),
                    Flag(plan.More));
        return 0;
    } catch (const Failure& failure) {
        return Report("next-run-time", failure);
    }
}

struct NextRunsArgs {
    std::string file, nonwork;
    int count = 10;
};

// Replays the server's checks: the first now, each later one a second after the next run,
// every run ending successfully so that the series goes on.
int NextRunsCommand(const NextRunsArgs& args) {
    try {
        vq::SystemClock clock;
        vq::TaskFileData task;
        std::string error;
        if (!vq::LoadTaskFile(clock, args.file, task, error)) throw Failure{error, 1};
        const vq::RepeatRule rule = RuleOption(task.general.TaskRepeat);
        const vq::NonWorkTest holidays = Holidays(args.nonwork);
        vq::VqDate check = clock.Now(), current = 0;
        vq::VqDate scheduled = DateOption("SCHEDULEDTIME", task.general.ScheduledTime);
        int printed = 0;
        // Each check after the first runs a slot, but for one across a year's end.
        for (int checks = 0; printed < args.count && checks < 2 * args.count + 2; ++checks) {
            const vq::RunPlan plan = vq::NextRunTime(check, current, scheduled, rule, holidays);
            if (plan.RunNow) {
                std::printf("%s\n", vq::FormatDateTime(checks == 0 ? check : current).c_str());
                ++printed;
            }
            if (!plan.More) break;
            current = plan.NextRun;
            scheduled = plan.NextSchedule;
            check = vq::AddSeconds(current, 1);
        }
        if (printed == 0) std::printf("no run follows\n");
        return 0;
    } catch (const Failure& failure) {
        return Report("next-runs", failure);
    }
}

}  // namespace

void AddScheduleCommands(CLI::App& app, int& exitCode) {
    auto runs = std::make_shared<NextRunsArgs>();
    CLI::App* nextRuns = app.add_subcommand(
        "next-runs", "Print the next run times that the server would compute for a task file");
    nextRuns->add_option("FILE", runs->file, "the task file (.vqf)")->required();
    nextRuns->add_option("--count", runs->count, "how many runs (default 10)")
        ->check(CLI::Range(1, 100000));
    nextRuns->add_option("--nonwork", runs->nonwork,
                         "holidays file in place of the queue's NonWork.dat");
    nextRuns->callback([runs, &exitCode] { exitCode = NextRunsCommand(*runs); });

    auto once = std::make_shared<NextRunTimeArgs>();
    CLI::App* nextRunTime = app.add_subcommand(
        "next-run-time", "Run the schedule calculation once, as the server does at a check");
    nextRunTime->add_option("--now", once->now, "the time of the check (default: now)");
    nextRunTime->add_option("--current", once->current,
                            "the next run computed before (CurRepeat; default 0, a new task)");
    nextRunTime->add_option("--scheduled", once->scheduled, "the scheduled time (SchTime)")
        ->required();
    nextRunTime->add_option("--repeat", once->repeat, "the repeat string")->required();
    nextRunTime->add_option("--nonwork", once->nonwork,
                            "holidays file in place of the queue's NonWork.dat");
    nextRunTime->footer("Dates as \"yyyy-mm-dd hh:mm:ss\"; 0 is the date 0.");
    nextRunTime->callback([once, &exitCode] { exitCode = NextRunTimeCommand(*once); });
}

}  // namespace vqctl
