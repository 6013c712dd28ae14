// runlet: the step runner. The server starts it once per step, with pipes on its standard
// input and output; see Runlet.h. Its options choose where the step runs (RunletOptions.h).
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include "runlet/Runlet.h"
#include "runlet/RunletOptions.h"
#include "runlet/StepProcess.h"

namespace {

void OnEndSignal(int) { vq::RequestRunletEnd(); }

// The server gives the runner no standard error; keep 0 to 2 taken, so that no pipe or file
// of the runner lands there by chance.
void KeepStandardHandlesTaken() {
    for (int fd = 0; fd < 3; ++fd)
        if (::fcntl(fd, F_GETFD) < 0) ::open("/dev/null", O_RDWR);
}

}  // namespace

int main(int argc, char** argv) {
    KeepStandardHandlesTaken();
    ::signal(SIGPIPE, SIG_IGN);
    struct sigaction action{};
    action.sa_handler = OnEndSignal;  // no SA_RESTART: a blocked read returns and the runner ends
    sigemptyset(&action.sa_mask);
    for (int sig : {SIGTERM, SIGINT, SIGHUP}) ::sigaction(sig, &action, nullptr);
    vq::BecomeSubreaper();
    // A bad option is answered in the conversation, where the server reads it.
    vq::Runlet runlet(0, 1, vq::ParseRunletOptions({argv + 1, argv + argc}));
    return runlet.Run();
}
