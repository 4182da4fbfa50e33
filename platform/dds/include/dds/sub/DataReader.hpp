#pragma once

#include <dds/dds.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "dds/core/Condition.hpp"
#include "dds/core/Qos.hpp"
#include "dds/sub/Subscriber.hpp"
#include "dds/topic/Topic.hpp"

namespace dds::sub {

/// What came with a sample.
class SampleInfo {
 public:
  SampleInfo() = default;
  explicit SampleInfo(const dds_sample_info_t& info) noexcept : info_(info) {}

  /// False: no data, only a change of the writer's state (the writer went away).
  [[nodiscard]] bool valid() const noexcept { return info_.valid_data; }
  /// Nanoseconds since 1970 on the writer's clock.
  [[nodiscard]] std::int64_t timestamp() const noexcept { return info_.source_timestamp; }
  /// The writer, as DDS numbers it in this process.
  [[nodiscard]] std::uint64_t publication_handle() const noexcept {
    return info_.publication_handle;
  }

 private:
  dds_sample_info_t info_{};
};

/// A sample as LoanedSamples lends it.
template <class T>
class SampleRef {
 public:
  SampleRef(const T& data, const SampleInfo& info) noexcept : data_(data), info_(info) {}
  [[nodiscard]] const T& data() const noexcept { return data_; }
  [[nodiscard]] const SampleInfo& info() const noexcept { return info_; }

 private:
  const T& data_;
  SampleInfo info_;
};

template <class T>
class DataReader;

/// Samples lent by a reader; given back when this goes.
template <class T>
class LoanedSamples {
 public:
  static constexpr std::size_t kMost = 64;

  LoanedSamples(LoanedSamples&& other) noexcept
      : reader_(other.reader_),
        count_(std::exchange(other.count_, 0)),
        data_(other.data_),
        info_(other.info_) {}
  LoanedSamples(const LoanedSamples&) = delete;
  LoanedSamples& operator=(const LoanedSamples&) = delete;
  LoanedSamples& operator=(LoanedSamples&&) = delete;
  ~LoanedSamples() {
    if (count_ > 0) {
      static_cast<void>(dds_return_loan(reader_, data_.data(), static_cast<std::int32_t>(count_)));
    }
  }

  [[nodiscard]] std::size_t length() const noexcept { return count_; }
  [[nodiscard]] SampleRef<T> operator[](std::size_t i) const noexcept {
    return {*static_cast<const T*>(data_[i]), SampleInfo(info_[i])};
  }

  class Iterator {
   public:
    Iterator(const LoanedSamples& samples, std::size_t index) : samples_(&samples), index_(index) {}
    SampleRef<T> operator*() const noexcept { return (*samples_)[index_]; }
    Iterator& operator++() noexcept {
      ++index_;
      return *this;
    }
    bool operator!=(const Iterator& other) const noexcept { return index_ != other.index_; }

   private:
    const LoanedSamples* samples_;
    std::size_t index_;
  };
  [[nodiscard]] Iterator begin() const noexcept { return {*this, 0}; }
  [[nodiscard]] Iterator end() const noexcept { return {*this, count_}; }

 private:
  friend class DataReader<T>;
  using Fetch = dds_return_t (*)(dds_entity_t, void**, dds_sample_info_t*, std::size_t,
                                 std::uint32_t);

  LoanedSamples(dds_entity_t reader, Fetch fetch, const char* operation) : reader_(reader) {
    count_ = static_cast<std::size_t>(
        core::detail::check(fetch(reader, data_.data(), info_.data(), kMost, kMost), operation));
  }

  dds_entity_t reader_;
  std::size_t count_ = 0;
  std::array<void*, kMost> data_{};
  std::array<dds_sample_info_t, kMost> info_{};
};

/// A reader whose sample type is known at run time.
class AnyDataReader : public core::Entity {
 public:
  AnyDataReader(core::null_type = core::null) noexcept {}
  AnyDataReader(const Subscriber& subscriber, const topic::AnyTopic& topic,
                const qos::DataReaderQos& qos = {})
      : Entity(dds_create_reader(subscriber.get_ddsc_entity(), topic.get_ddsc_entity(),
                                 qos.to_ddsc(), nullptr),
               "dds_create_reader(" + topic.name() + ")", subscriber.handle(), topic.handle()) {}

  /// Takes the oldest sample into `sample`, memory of the type's size that holds a valid (e.g.
  /// zeroed) sample. False: there is none.
  bool take_into(void* sample, SampleInfo& info) {
    dds_sample_info_t raw{};
    void* samples[] = {sample};
    const auto count =
        core::detail::check(dds_take(get_ddsc_entity(), samples, &raw, 1, 1), "dds_take");
    if (count > 0) info = SampleInfo(raw);
    return count > 0;
  }
  /// Writers matched at present.
  [[nodiscard]] std::uint32_t matched_publications() const {
    dds_subscription_matched_status_t status{};
    core::detail::check(dds_get_subscription_matched_status(get_ddsc_entity(), &status),
                        "dds_get_subscription_matched_status");
    return status.current_count;
  }
};

/// A reader of samples of type T.
template <class T>
class DataReader : public AnyDataReader {
 public:
  DataReader(core::null_type = core::null) noexcept {}
  DataReader(const Subscriber& subscriber, const topic::Topic<T>& topic,
             const qos::DataReaderQos& qos = {})
      : AnyDataReader(subscriber, topic, qos) {}

  /// Takes the samples that are there (at most LoanedSamples::kMost). Doesn't wait.
  [[nodiscard]] LoanedSamples<T> take() { return {get_ddsc_entity(), dds_take, "dds_take"}; }
  /// The same, but the samples stay with the reader.
  [[nodiscard]] LoanedSamples<T> read() { return {get_ddsc_entity(), dds_read, "dds_read"}; }
};

namespace cond {

/// The condition that a reader has samples to take.
class ReadCondition : public core::cond::Condition {
 public:
  explicit ReadCondition(const AnyDataReader& reader)
      : Condition(dds_create_readcondition(reader.get_ddsc_entity(), DDS_ANY_STATE),
                  "dds_create_readcondition", reader.handle()) {}
};

}  // namespace cond
}  // namespace dds::sub
