#include "recorder/recording_stats.h"

#include <charconv>
#include <cmath>

#include "support/log.h"

namespace ac {

std::string statsLine(const RecordingStats& s) {
  auto flag = [](bool b) { return b ? "true" : "false"; };
  using std::to_string;
  return "stats: ioproc=" + to_string(s.ioProcCalls) + " sysAppended=" + to_string(s.sysAppended) +
         " sysFail=" + to_string(s.sysFail) + " micAppended=" + to_string(s.micAppended) +
         " micFail=" + to_string(s.micFail) + " sysMaxAbs=" + formatFloat(s.sysMaxAbs) +
         " micMaxAbs=" + formatFloat(s.micMaxAbs) + " micEndedEarly=" + flag(s.micEndedEarly) +
         " sysDataFail=" + to_string(s.sysDataFail) + " sysFmtRate=" + formatDouble(s.sysFmtRate) +
         " sysFmtCh=" + to_string(s.sysFmtCh) + " sysFmtChanges=" + to_string(s.sysFmtChanges) +
         " sysAacRate=" + formatDouble(s.sysAacRate) + " sysAacClamped=" + flag(s.sysAacClamped) +
         " sysTapBuf=" + to_string(s.sysTapBufIndex) + "/" + to_string(s.sysTapBufCount) +
         " micFmtRate=" + formatDouble(s.micFmtRate) + " micFmtCh=" + to_string(s.micFmtCh) +
         " micFmtChanges=" + to_string(s.micFmtChanges);
}

}  // namespace ac
