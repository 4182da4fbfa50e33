#pragma once

#include <dds/dds.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "dds/core/Duration.hpp"
#include "dds/core/Entity.hpp"
#include "dds/core/Status.hpp"

namespace dds::core::cond {

/// Something that a WaitSet can wait for.
class Condition : public Entity {
 public:
  Condition(null_type) noexcept {}
  [[nodiscard]] bool trigger_value() const {
    return detail::check(dds_triggered(get_ddsc_entity()), "dds_triggered") > 0;
  }

 protected:
  using Entity::Entity;
};

/// A condition that the application triggers by hand. Needs no participant.
class GuardCondition : public Condition {
 public:
  GuardCondition()
      : Condition(dds_create_guardcondition(DDS_CYCLONEDDS_HANDLE), "dds_create_guardcondition",
                  nullptr) {}

  /// Wakes the wait sets it is attached to (true), or resets it (false). Never blocks.
  void trigger_value(bool value) {
    detail::check(dds_set_guardcondition(get_ddsc_entity(), value), "dds_set_guardcondition");
  }
  [[nodiscard]] bool trigger_value() const {
    bool value = false;
    detail::check(dds_read_guardcondition(get_ddsc_entity(), &value), "dds_read_guardcondition");
    return value;
  }
};

/// The condition that any of an entity's enabled statuses has changed. The enabled statuses belong
/// to the entity: setting them through one StatusCondition sets them for all.
class StatusCondition : public Condition {
 public:
  explicit StatusCondition(const Entity& entity) : Condition(entity.handle()) {}

  void enabled_statuses(status::StatusMask mask) {
    detail::check(dds_set_status_mask(get_ddsc_entity(), mask.to_ddsc()), "dds_set_status_mask");
  }
};

using ConditionSeq = std::vector<Condition>;

/// Waits for any of the attached conditions. A reference, like an entity: copies are the same set.
/// Any thread may call any operation; conditions may be attached and detached during a wait.
class WaitSet {
 public:
  WaitSet() : shared_(std::make_shared<Shared>()) {}
  WaitSet(null_type) noexcept {}

  [[nodiscard]] bool is_nil() const noexcept { return shared_ == nullptr; }
  friend bool operator==(const WaitSet& a, const WaitSet& b) noexcept {
    return a.shared_ == b.shared_;
  }

  /// Attaching a condition again changes nothing.
  WaitSet& attach_condition(const Condition& condition) {
    Shared& shared = get();
    const std::lock_guard lock(shared.mutex);
    if (shared.find(condition) != shared.attached.end()) return *this;
    const dds_entity_t entity = condition.get_ddsc_entity();
    shared.attached.push_back(condition);
    const dds_return_t result = dds_waitset_attach(shared.set.get_ddsc_entity(), entity, entity);
    if (result < 0) {
      shared.attached.pop_back();
      detail::fail(result, "dds_waitset_attach");
    }
    return *this;
  }
  WaitSet& operator+=(const Condition& condition) { return attach_condition(condition); }

  /// False when it isn't attached.
  bool detach_condition(const Condition& condition) {
    Shared& shared = get();
    const std::lock_guard lock(shared.mutex);
    const auto found = shared.find(condition);
    if (found == shared.attached.end()) return false;
    // A closed entity has left the set already; then there is nothing to refuse.
    const dds_entity_t entity = found->handle()->entity();
    if (entity > 0) static_cast<void>(dds_waitset_detach(shared.set.get_ddsc_entity(), entity));
    shared.attached.erase(found);
    return true;
  }
  WaitSet& operator-=(const Condition& condition) {
    detach_condition(condition);
    return *this;
  }

  /// Waits until a condition is triggered, at most `timeout` of the wall clock, and returns the
  /// triggered ones. Empty when the time ran out: unlike in the standard that is no exception,
  /// since for a loop that looks around once a second it is the usual case.
  ConditionSeq wait(const Duration& timeout) {
    ConditionSeq triggered;
    return std::move(wait(triggered, timeout));
  }
  /// The same into `triggered`, whose memory is used again.
  ConditionSeq& wait(ConditionSeq& triggered, const Duration& timeout) {
    Shared& shared = get();
    constexpr std::size_t kMost = 32;
    dds_attach_t entities[kMost];
    const auto count = static_cast<std::size_t>(detail::check(
        dds_waitset_wait(shared.set.get_ddsc_entity(), entities, kMost, timeout.to_ddsc()),
        "dds_waitset_wait"));
    triggered.clear();
    const std::lock_guard lock(shared.mutex);
    for (std::size_t i = 0; i < std::min(count, kMost); ++i) {
      for (const Condition& condition : shared.attached) {
        if (condition.handle()->entity() == entities[i]) triggered.push_back(condition);
      }
    }
    return triggered;
  }
  ConditionSeq wait() { return wait(Duration::infinite()); }

  [[nodiscard]] ConditionSeq conditions() const {
    const std::lock_guard lock(get().mutex);
    return get().attached;
  }

 private:
  class SetEntity : public Entity {
   public:
    SetEntity()
        : Entity(dds_create_waitset(DDS_CYCLONEDDS_HANDLE), "dds_create_waitset", nullptr) {}
  };
  struct Shared {
    std::mutex mutex;  // guards attached; held for calls that don't wait only
    ConditionSeq attached;
    SetEntity set;  // goes before what is attached to it

    ConditionSeq::iterator find(const Condition& condition) {
      return std::find(attached.begin(), attached.end(), condition);
    }
  };

  [[nodiscard]] Shared& get() const {
    if (!shared_) throw NullReferenceError("use of a null wait set");
    return *shared_;
  }

  std::shared_ptr<Shared> shared_;
};

}  // namespace dds::core::cond
