// Every seam simulated: the platform the recorder and notify tests run the
// core on. Each fake is a public member for the test to script and inspect.
#pragma once

#include "platform/platform.h"
#include "tests/simulated/sim_asset_writer.h"
#include "tests/simulated/sim_audio_hardware.h"
#include "tests/simulated/sim_mic_capture.h"
#include "tests/simulated/sim_notification_center.h"
#include "tests/simulated/sim_workspace.h"

namespace ac::sim {

class SimPlatform final : public platform::Platform {
 public:
  platform::AudioHardware& audio() override { return hw; }
  platform::MicCapture& mic() override { return micSim; }
  platform::WriterFactory& writers() override { return writerSim; }
  platform::NotificationCenter& notifications() override { return center; }
  platform::Workspace& workspace() override { return desk; }

  SimAudioHardware hw;
  SimMicCapture micSim;
  SimWriterFactory writerSim;
  SimNotificationCenter center;
  SimWorkspace desk;
};

}  // namespace ac::sim
