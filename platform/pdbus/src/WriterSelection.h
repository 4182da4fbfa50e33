#pragma once

#include <dds/dds.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "pdbus/IDDSSubcriber.h"

namespace Pexal::PDBus {

/// Which writers of a topic a reader listens to: asks the application's filter once for each and
/// keeps what it said for as long as the writer is matched.
///
/// The samples of a refused writer are turned away at the reader's history, so that they neither
/// displace those of others nor wake anybody. There is room for kMostIgnored such writers there;
/// what more of them write, and what a writer wrote before it was judged, is dropped when it is
/// taken.
///
/// Threading: takes() on the thread that takes samples; the history asks on any thread of libddsc,
/// and reads nothing but the slots of ignored writers.
class WriterSelection {
 public:
  static constexpr std::size_t kMostIgnored = 32;

  /// An empty `filter` takes all. `name` is for the log.
  WriterSelection(IDDSSubcriber::WriterFilter filter, std::string name);
  WriterSelection(const WriterSelection&) = delete;
  WriterSelection& operator=(const WriterSelection&) = delete;

  /// Has the histories of `topic`'s readers ask. Before the first of them is made; the topic
  /// entity is for this reader alone, and this object outlives it. Throws dds::core::Exception.
  void applyTo(const dds::topic::AnyTopic& topic);

  /// Whether a sample of that writer, which `reader` has just taken, is to be delivered. Asks DDS
  /// only about a writer that it hasn't met yet; not delivered when that one has gone already.
  [[nodiscard]] bool takes(const dds::sub::AnyDataReader& reader, dds_instance_handle_t writer);

 private:
  struct Verdict {
    dds_instance_handle_t writer;
    bool taken;
  };
  [[nodiscard]] bool judge(const dds::sub::AnyDataReader& reader, dds_instance_handle_t writer);
  [[nodiscard]] bool ask(std::string_view userData) const noexcept;
  void forgetAllBut(std::vector<dds_instance_handle_t> matched);
  [[nodiscard]] std::vector<Verdict>::iterator find(dds_instance_handle_t writer);
  void ignore(dds_instance_handle_t writer) noexcept;
  static bool admits(const dds_sample_info_t* info, void* selection);

  const IDDSSubcriber::WriterFilter filter_;
  const std::string name_;
  std::vector<Verdict> verdicts_;  // by rising writer; the taking thread's own
  // 0: a free slot. Written by the taking thread.
  std::array<std::atomic<dds_instance_handle_t>, kMostIgnored> ignored_{};
};

}  // namespace Pexal::PDBus
