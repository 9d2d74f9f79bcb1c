// signalcleanup.h: SIGINT, SIGTERM and SIGHUP end the command cleanly. Started first thing in
// main, before any other thread exists, it blocks the three signals in every thread and waits
// for them on a thread of its own; when one comes it removes every temporary file and folder
// (pipelinehost::TemporaryFiles; an existing OUT is only ever replaced by a finished file, so
// it stays as it was) and ends the process with 128 + the signal number (130, 143, 129).
// SIGPIPE is ignored: a closed pipe is a write error the command reports and cleans up after.
#pragma once

namespace xpsfilter {

class SignalCleanup {
public:
    static void Start();
};

}  // namespace xpsfilter
