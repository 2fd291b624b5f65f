// The figures of one recording's final statistics line, and its text.
#pragma once

#include <cstdint>
#include <string>

namespace ac {

struct RecordingStats {
  int64_t ioProcCalls = 0;
  int64_t sysAppended = 0;
  int64_t sysFail = 0;
  int64_t micAppended = 0;
  int64_t micFail = 0;
  float sysMaxAbs = 0;
  float micMaxAbs = 0;
  bool micEndedEarly = false;
  int64_t sysDataFail = 0;
  double sysFmtRate = 0;
  uint32_t sysFmtCh = 0;
  int64_t sysFmtChanges = 0;
  double sysAacRate = 0;
  bool sysAacClamped = false;
  // The tap selection starts as buffer 0, one buffer.
  int64_t sysTapBufIndex = 0;
  int64_t sysTapBufCount = 1;
  double micFmtRate = 0;
  uint32_t micFmtCh = 0;
  int64_t micFmtChanges = 0;
};

// "stats: ioproc=<n> sysAppended=<n> ... micFmtChanges=<n>".
std::string statsLine(const RecordingStats& s);


}  // namespace ac
