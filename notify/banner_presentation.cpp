#include "notify/banner_presentation.h"

#include "notify/click_payload.h"
#include "notify/meeting_banner.h"
#include "support/overloaded.h"

namespace ac::notify {
namespace {

std::string bodyClickTitle(const NotifyClickTarget& target) {
  return std::visit(Overloaded{
                        [](const ClickURL&) { return std::string("Open note"); },
                        [](const ClickOpenNote&) { return std::string("Open note"); },
                        [](const ClickRecordings&) { return std::string("Open Recordings"); },
                        [](const ClickStartRecording&) { return std::string(MeetingBanner::startActionTitle); },
                        // Only the warning's own buttons act.
                        [](const ClickIgnoreSilence&) { return std::string(); },
                        [](const ClickSnoozeSilence&) { return std::string(); },
                    },
                    target);
}

}  // namespace

BannerPresentation bannerPresentation(const std::optional<std::string>& clickToken) {
  if (!clickToken) return {};
  auto resolved = resolveNotifyClickTarget(*clickToken);
  const auto* target = clickTarget(resolved);
  if (!target) return {};
  return {true, bodyClickTitle(*target)};
}

}  // namespace ac::notify
