#pragma once

#include <dds/dds.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "dds/core/Duration.hpp"

/// The QoS policies. Each can put itself into libddsc's set (apply) and be read from one (from; the
/// default-constructed policy when the set doesn't hold it).
namespace dds::core::policy {

enum class HistoryKind : std::uint8_t { KEEP_LAST, KEEP_ALL };
enum class ReliabilityKind : std::uint8_t { BEST_EFFORT, RELIABLE };
enum class DurabilityKind : std::uint8_t { VOLATILE, TRANSIENT_LOCAL };
enum class DataRepresentationId : std::int16_t { XCDR1 = 0, XCDR2 = 2 };

/// How many samples are kept per instance.
class History {
 public:
  /// `depth`: 1 or more.
  static History KeepLast(std::int32_t depth = 1) { return {HistoryKind::KEEP_LAST, depth}; }
  static History KeepAll() { return {HistoryKind::KEEP_ALL, 1}; }
  History() = default;

  [[nodiscard]] HistoryKind kind() const noexcept { return kind_; }
  [[nodiscard]] std::int32_t depth() const noexcept { return depth_; }

  void apply(dds_qos_t* qos) const {
    dds_qset_history(
        qos, kind_ == HistoryKind::KEEP_ALL ? DDS_HISTORY_KEEP_ALL : DDS_HISTORY_KEEP_LAST, depth_);
  }
  static History from(const dds_qos_t* qos) {
    dds_history_kind_t kind{};
    std::int32_t depth = 1;
    if (!dds_qget_history(qos, &kind, &depth)) return {};
    return kind == DDS_HISTORY_KEEP_ALL ? KeepAll() : KeepLast(depth);
  }

 private:
  History(HistoryKind kind, std::int32_t depth) : kind_(kind), depth_(depth) {}
  HistoryKind kind_ = HistoryKind::KEEP_LAST;
  std::int32_t depth_ = 1;
};

/// Whether lost samples are sent again.
class Reliability {
 public:
  /// `maxBlocking` has no effect: nothing is waited for.
  static Reliability BestEffort(Duration maxBlocking = Duration::zero()) {
    return {ReliabilityKind::BEST_EFFORT, maxBlocking};
  }
  /// `maxBlocking`: how long a write may wait for room.
  static Reliability Reliable(Duration maxBlocking = Duration::from_millisecs(100)) {
    return {ReliabilityKind::RELIABLE, maxBlocking};
  }
  Reliability() = default;

  [[nodiscard]] ReliabilityKind kind() const noexcept { return kind_; }
  [[nodiscard]] Duration max_blocking_time() const noexcept { return maxBlocking_; }

  void apply(dds_qos_t* qos) const {
    dds_qset_reliability(
        qos,
        kind_ == ReliabilityKind::RELIABLE ? DDS_RELIABILITY_RELIABLE : DDS_RELIABILITY_BEST_EFFORT,
        maxBlocking_.to_ddsc());
  }
  static Reliability from(const dds_qos_t* qos) {
    dds_reliability_kind_t kind{};
    dds_duration_t maxBlocking = 0;
    if (!dds_qget_reliability(qos, &kind, &maxBlocking)) return {};
    return kind == DDS_RELIABILITY_RELIABLE ? Reliable(Duration::from_ddsc(maxBlocking))
                                            : BestEffort();
  }

 private:
  Reliability(ReliabilityKind kind, Duration maxBlocking)
      : kind_(kind), maxBlocking_(maxBlocking) {}
  ReliabilityKind kind_ = ReliabilityKind::BEST_EFFORT;
  Duration maxBlocking_;
};

/// Whether late readers get what was written before they came.
class Durability {
 public:
  static Durability Volatile() { return Durability(DurabilityKind::VOLATILE); }
  static Durability TransientLocal() { return Durability(DurabilityKind::TRANSIENT_LOCAL); }
  Durability() = default;

  [[nodiscard]] DurabilityKind kind() const noexcept { return kind_; }

  void apply(dds_qos_t* qos) const {
    dds_qset_durability(qos, kind_ == DurabilityKind::TRANSIENT_LOCAL
                                 ? DDS_DURABILITY_TRANSIENT_LOCAL
                                 : DDS_DURABILITY_VOLATILE);
  }
  static Durability from(const dds_qos_t* qos) {
    dds_durability_kind_t kind{};
    if (!dds_qget_durability(qos, &kind)) return {};
    return kind == DDS_DURABILITY_VOLATILE ? Volatile() : TransientLocal();
  }

 private:
  explicit Durability(DurabilityKind kind) : kind_(kind) {}
  DurabilityKind kind_ = DurabilityKind::VOLATILE;
};

/// Names of the partitions of a publisher or subscriber. `*` and `?` in a name are wildcards.
class Partition {
 public:
  Partition() = default;
  explicit Partition(std::string name) { names_.push_back(std::move(name)); }
  explicit Partition(std::vector<std::string> names) : names_(std::move(names)) {}

  [[nodiscard]] const std::vector<std::string>& name() const noexcept { return names_; }

  void apply(dds_qos_t* qos) const {
    std::vector<const char*> names;
    for (const std::string& name : names_) names.push_back(name.c_str());
    dds_qset_partition(qos, static_cast<std::uint32_t>(names.size()), names.data());
  }
  static Partition from(const dds_qos_t* qos) {
    std::uint32_t count = 0;
    char** names = nullptr;
    std::vector<std::string> result;
    if (dds_qget_partition(qos, &count, &names)) {
      for (std::uint32_t i = 0; i < count; ++i) {
        result.emplace_back(names[i]);
        dds_free(names[i]);
      }
      dds_free(names);
    }
    return Partition(std::move(result));
  }

 private:
  std::vector<std::string> names_;
};

/// Bytes that other participants see when they discover the entity.
class UserData {
 public:
  UserData() = default;
  explicit UserData(std::vector<std::uint8_t> value) : value_(std::move(value)) {}

  [[nodiscard]] const std::vector<std::uint8_t>& value() const noexcept { return value_; }

  void apply(dds_qos_t* qos) const { dds_qset_userdata(qos, value_.data(), value_.size()); }
  static UserData from(const dds_qos_t* qos) {
    void* value = nullptr;
    std::size_t size = 0;
    std::vector<std::uint8_t> result;
    if (dds_qget_userdata(qos, &value, &size) && value != nullptr) {
      const auto* bytes = static_cast<const std::uint8_t*>(value);
      result.assign(bytes, bytes + size);
      dds_free(value);
    }
    return UserData(std::move(result));
  }

 private:
  std::vector<std::uint8_t> value_;
};

/// The encodings that a writer offers (its first is used) or a reader accepts.
class DataRepresentation {
 public:
  DataRepresentation() = default;
  DataRepresentation(std::initializer_list<DataRepresentationId> ids) : ids_(ids) {}

  [[nodiscard]] const std::vector<DataRepresentationId>& value() const noexcept { return ids_; }

  void apply(dds_qos_t* qos) const {
    std::vector<dds_data_representation_id_t> ids;
    for (const DataRepresentationId id : ids_) {
      ids.push_back(static_cast<dds_data_representation_id_t>(id));
    }
    dds_qset_data_representation(qos, static_cast<std::uint32_t>(ids.size()), ids.data());
  }
  static DataRepresentation from(const dds_qos_t* qos) {
    std::uint32_t count = 0;
    dds_data_representation_id_t* ids = nullptr;
    DataRepresentation result;
    if (dds_qget_data_representation(qos, &count, &ids) && ids != nullptr) {
      for (std::uint32_t i = 0; i < count; ++i) {
        result.ids_.push_back(static_cast<DataRepresentationId>(ids[i]));
      }
      dds_free(ids);
    }
    return result;
  }

 private:
  std::vector<DataRepresentationId> ids_;
};

}  // namespace dds::core::policy
