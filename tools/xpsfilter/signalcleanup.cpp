// signalcleanup.cpp: the signal-waiting thread.
#include "signalcleanup.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "pipelinehost/temporaryfiles.h"

namespace xpsfilter {

void SignalCleanup::Start() {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::thread([set] {
        int signal = 0;
        while (sigwait(&set, &signal) != 0) {
        }
        pipelinehost::TemporaryFiles::RemoveAll();
        ::_exit(128 + signal);
    }).detach();
}

}  // namespace xpsfilter
