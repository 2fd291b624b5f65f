// How a banner behaves where the platform leaves that to the poster (a
// desktop notification service asks for a lifetime and the body click's
// label; the macOS centre decides both itself): the rules, kept apart from
// any one service.
#pragma once

#include <optional>
#include <string>

namespace ac::notify {

struct BannerPresentation {
  // Stays until the user acts, it expires or it is withdrawn: every banner
  // that a click or an action button can act on.
  bool resident = false;
  // What a body click does, as the label of the default action; empty when
  // a body click does nothing (no target, or a silence warning whose meaning
  // lives only in its buttons).
  std::string defaultActionTitle;
};

// From the banner's click token (already validated; absent: not clickable).
BannerPresentation bannerPresentation(const std::optional<std::string>& clickToken);

}  // namespace ac::notify
