#pragma once

#include <dds/dds.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "dds/core/Exception.hpp"

namespace dds::core {

/// What a null reference is made from: `DomainParticipant participant = dds::core::null;`
struct null_type {};
inline constexpr null_type null{};

namespace detail {

/// One libddsc entity; deleted with its last reference, and never before what is made from it.
class Handle {
 public:
  Handle(dds_entity_t entity, std::shared_ptr<Handle> parent, std::shared_ptr<Handle> second = {})
      : parent_(std::move(parent)), second_(std::move(second)), entity_(entity) {}
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() { close(); }

  void close() noexcept {
    const dds_entity_t entity = entity_.exchange(0);
    // A parent that was closed took this entity with it: that deletion's refusal is the wanted
    // state.
    if (entity > 0) static_cast<void>(dds_delete(entity));
  }
  [[nodiscard]] dds_entity_t entity() const noexcept { return entity_.load(); }

 private:
  std::shared_ptr<Handle> parent_;
  std::shared_ptr<Handle> second_;
  std::atomic<dds_entity_t> entity_;
};

}  // namespace detail

/// Base of everything that lives in DDS: a reference. Copies refer to the same entity, which is
/// deleted with the last of them (a reliable writer with unacknowledged samples may take a second
/// for it). Any thread may use an entity; one reference object is used by one thread at a time,
/// like a shared pointer. Operations throw dds::core::Exception.
class Entity {
 public:
  [[nodiscard]] bool is_nil() const noexcept { return handle_ == nullptr; }
  explicit operator bool() const noexcept { return !is_nil(); }
  friend bool operator==(const Entity& a, const Entity& b) noexcept {
    return a.handle_ == b.handle_;
  }

  /// Deletes the entity now, with everything made from it, for all who refer to it; their further
  /// operations throw AlreadyClosedError.
  void close() {
    if (handle_) handle_->close();
  }

  /// The entity's number within libddsc. Throws NullReferenceError, AlreadyClosedError.
  [[nodiscard]] dds_entity_t get_ddsc_entity() const {
    if (!handle_) throw NullReferenceError("use of a null dds reference");
    const dds_entity_t entity = handle_->entity();
    if (entity <= 0) throw AlreadyClosedError("use of a closed dds entity");
    return entity;
  }
  [[nodiscard]] std::uint64_t instance_handle() const {
    dds_instance_handle_t result = 0;
    detail::check(dds_get_instance_handle(get_ddsc_entity(), &result), "dds_get_instance_handle");
    return result;
  }

  [[nodiscard]] const std::shared_ptr<detail::Handle>& handle() const noexcept { return handle_; }

 protected:
  Entity() noexcept = default;
  explicit Entity(std::shared_ptr<detail::Handle> handle) : handle_(std::move(handle)) {}
  /// Takes what a dds_create_ function returned.
  Entity(dds_entity_t created, const std::string& operation, std::shared_ptr<detail::Handle> parent,
         std::shared_ptr<detail::Handle> second = {}) {
    if (created < 0) detail::fail(created, operation);
    handle_ = std::make_shared<detail::Handle>(created, std::move(parent), std::move(second));
  }
  ~Entity() = default;
  Entity(const Entity&) = default;
  Entity(Entity&&) noexcept = default;
  Entity& operator=(const Entity&) = default;
  Entity& operator=(Entity&&) noexcept = default;

 private:
  std::shared_ptr<detail::Handle> handle_;
};

}  // namespace dds::core
