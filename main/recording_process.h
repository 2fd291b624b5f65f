// The process-wide state of a recording launch. Created once by the
// recording mode, never destroyed (the process ends with it still alive:
// queues and capture threads may be running when any path exits).
#pragma once

#include <memory>
#include <string>

#include "cli/args.h"
#include "cli/armed_phase.h"
#include "recorder/recorder.h"
#include "support/dispatch.h"

namespace ac::entry {

struct RecordingProcess {
  Args args;
  std::string outPath;  // args.output, tilde expanded
  int captureLockFD = -1;
  std::unique_ptr<Recorder> recorder;
  ArmedPhase armedPhase;
  // Never signalled: whoever loses the race to end an armed launch parks
  // here, so exactly one path calls exit.
  Semaphore armedLoserPark;
  std::unique_ptr<SerialQueue> q;  // "audio-capture.signal"
  Semaphore stopSem;               // signalled by the stop completion
  Block finalizeHandler;
  std::unique_ptr<SignalSource> s1, s2, s3;  // SIGTERM, SIGINT, SIGHUP
};

RecordingProcess& recordingProcess();

// The armed sequence, between set-up and "ready". Returns once the recorder
// runs; every other way out ends the process.
void runArmedSequence(RecordingProcess& p);

}  // namespace ac::entry
