#include "support/ChildProcess.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <ostream>
#include <stdexcept>

#include "support/Await.h"

namespace JCam::Support {

void PrintTo(const Ending& ending, std::ostream* out) {
    constexpr const char* kKinds[] = {"exited with ", "killed by ", "hung "};
    *out << kKinds[ending.kind] << ending.value;
}

Ending runChild(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error("fork");
    }
    if (child == 0) {
        const rlimit noCore = {};
        setrlimit(RLIMIT_CORE, &noCore);
        for (const int sig : {SIGABRT, SIGSEGV, SIGBUS}) {
            signal(sig, SIG_DFL);  // a sanitizer's otherwise
        }
        body();
        _exit(0);
    }
    int status = 0;
    if (!await([&] { return waitpid(child, &status, WNOHANG) == child; })) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return {Ending::HUNG, 0};
    }
    return WIFSIGNALED(status) ? Ending{Ending::KILLED, WTERMSIG(status)}
                               : Ending{Ending::EXITED, WEXITSTATUS(status)};
}

}  // namespace JCam::Support
