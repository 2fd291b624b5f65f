// "--withdraw-meeting-prompt": taking back meeting prompts that are no longer
// relevant, journal first so a withdrawn banner can never route a cold click.
#pragma once

#include <optional>

namespace ac::notify {

// Everything but the exit; the number of prompts taken back.
int withdrawMeetingPrompts(std::optional<double> before);

}  // namespace ac::notify
