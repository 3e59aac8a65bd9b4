// NYBNotification and NYBNotificationCenter: announcements broadcast inside
// the process (a record was submitted, the network changed).
//
// A notification is an immutable value: a name, an optional object (usually
// the sender, any dynamic value) and a user-information dictionary (empty
// when there is none).
//
// The centre keeps a list of observers, each a block registered for one name
// (or every name) and optionally for one object. Posting calls the matching
// observers synchronously, on the posting thread, in the order they were
// added; posting returns when all of them have returned. An observer added
// while a notification is being delivered does not receive that one; an
// observer removed while a delivery is under way is not called afterwards
// (a call already running on another thread may still finish). The centre
// does not keep an observed object alive: an object filter holds it weakly
// and compares by identity (other values compare by equality).
//
// Every operation may be called from any thread, and an observer may post,
// add and remove observers from inside its block. defaultCenter() lives as
// long as the process.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "NymbrelCore/NYBDictionary.h"
#include "NymbrelCore/NYBDynamicValue.h"

namespace nyb {

class NYB_EXPORT NYBNotification {
 public:
  explicit NYBNotification(std::string name, NYBDynamicValue object = {},
                           NYBDictionary userInfo = {});

  const std::string& name() const { return name_; }
  const NYBDynamicValue& object() const { return object_; }
  const NYBDictionary& userInfo() const { return userInfo_; }

 private:
  std::string name_;
  NYBDynamicValue object_;
  NYBDictionary userInfo_;
};

// Names one registration; removing it twice, or removing an empty token, does
// nothing.
class NYB_EXPORT NYBNotificationToken {
 public:
  NYBNotificationToken() = default;
  bool isValid() const { return id_ != 0; }
  friend bool operator==(const NYBNotificationToken&, const NYBNotificationToken&) = default;

 private:
  friend class NYBNotificationCenter;
  explicit NYBNotificationToken(std::uint64_t id) : id_(id) {}
  std::uint64_t id_ = 0;
};

// One registration that ends when this object does: made by
// NYBNotificationCenter::addScopedObserverForName(), movable, not copyable. It
// may outlive its centre (the removal then does nothing). Reset or destroy it
// on any thread; the block is not called after the destructor returns, except
// for a call already running on another thread.
class NYB_EXPORT NYBScopedObserver {
 public:
  NYBScopedObserver() = default;
  ~NYBScopedObserver() { reset(); }
  NYBScopedObserver(NYBScopedObserver&& other) noexcept;
  NYBScopedObserver& operator=(NYBScopedObserver&& other) noexcept;
  NYBScopedObserver(const NYBScopedObserver&) = delete;
  NYBScopedObserver& operator=(const NYBScopedObserver&) = delete;

  bool isActive() const { return token_.isValid(); }
  // Removes the registration now.
  void reset();

 private:
  friend class NYBNotificationCenter;
  NYBScopedObserver(std::weak_ptr<void> center, NYBNotificationToken token)
      : center_(std::move(center)), token_(token) {}
  std::weak_ptr<void> center_;
  NYBNotificationToken token_;
};

class NYB_EXPORT NYBNotificationCenter {
 public:
  using Block = std::function<void(const NYBNotification&)>;

  // The process's shared centre.
  static NYBNotificationCenter& defaultCenter();

  NYBNotificationCenter();
  ~NYBNotificationCenter();
  NYBNotificationCenter(const NYBNotificationCenter&) = delete;
  NYBNotificationCenter& operator=(const NYBNotificationCenter&) = delete;

  // Registers a block for notifications of that name (every name when
  // absent) from that object (any object when absent). The block runs on the
  // posting thread.
  NYBNotificationToken addObserverForName(std::optional<std::string> name,
                                          const NYBDynamicValue& object, Block block);
  void removeObserver(const NYBNotificationToken& token);
  // The same registration, removed when the returned object is destroyed:
  // keep it as long as the block should run (a member of the object whose
  // state the block touches, say).
  [[nodiscard]] NYBScopedObserver addScopedObserverForName(std::optional<std::string> name,
                                                           const NYBDynamicValue& object,
                                                           Block block);

  void postNotification(const NYBNotification& notification);
  void postNotificationName(std::string name, NYBDynamicValue object = {},
                            NYBDictionary userInfo = {});

  // How many observers are registered (for diagnostics and tests).
  std::size_t observerCount() const;

 private:
  friend class NYBScopedObserver;
  struct State;
  static void removeObserver(State& state, const NYBNotificationToken& token);
  std::shared_ptr<State> state_;
};

}  // namespace nyb
