// NYBFakeReachabilitySource: a reachability source whose flags a test sets.
//
// Every target it makes reports the flags last given to setFlags(), and each
// setFlags() call counts as a change: every scheduled target calls back with
// the new flags on its run loop (delivered when that loop next runs). Reading
// the flags, making targets, setting callbacks and scheduling can each be made
// to fail. The source records what targets were asked for and how many are
// alive and scheduled, so a test can check that a monitor released its target.
//
// Any thread may call any operation; callbacks run on the targets' run loops.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "NymbrelCore/NYBReachabilitySource.h"

namespace nyb {

class NYB_EXPORT NYBFakeReachabilitySource : public NYBReachabilitySource {
 public:
  // What one target was made for: a host name, or a copy of a socket address.
  struct Request {
    std::optional<std::string> hostName;
    sockaddr_storage address{};
  };

  explicit NYBFakeReachabilitySource(NYBReachabilityFlags flags = 0);
  ~NYBFakeReachabilitySource() override;

  std::unique_ptr<NYBReachabilityTarget> createWithName(std::string_view hostName) override;
  std::unique_ptr<NYBReachabilityTarget> createWithAddress(const sockaddr* address) override;

  NYBReachabilityFlags flags() const;
  void setFlags(NYBReachabilityFlags flags);

  void setFlagsReadable(bool readable);
  void setFailsCreation(bool fails);
  void setFailsSettingCallback(bool fails);
  void setFailsScheduling(bool fails);

  // Every target asked for, in order, also those refused.
  std::vector<Request> requests() const;
  // Targets made and not yet destroyed.
  std::size_t liveTargetCount() const;
  // Targets scheduled on a run loop now.
  std::size_t scheduledTargetCount() const;

  // Shared with the targets; an implementation detail.
  struct State;

 private:
  std::shared_ptr<State> state_;
};

}  // namespace nyb
