#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "shared_memory/cases/Ends.h"

namespace bench {

/// One kind of channel in an interleaved measurement, and what was measured of it.
struct Side {
  enum Figure { kPaced, kDelivery, kTight, kAwake, kAlone, kFigures };

  Ends ends;
  std::optional<Child> lonely;  ///< the writer of a channel that has no reader
  std::array<std::vector<double>, kFigures> ns = {};
};

/// Writes for each reading of the clock where they aren't paced.
inline constexpr std::uint32_t kWritesPerReading = 16;

/// A "write" for a WriterRole.
[[nodiscard]] Json::Value writing(std::uint32_t count, std::uint32_t intervalUs,
                                  std::uint32_t batch);

// Each measures `count` writes of a side.

/// At 1 kHz: the reader is asleep before each write. kPaced and kDelivery.
void measurePaced(Side& side, std::uint32_t count);
/// As fast as it goes, the reader taking what comes. kTight.
void measureTight(Side& side, std::uint32_t count);
/// The reader is busy in its callback, so that there is nobody to wake. kAwake.
void measureAwake(Side& side, std::uint32_t count);
/// By the lonely writer. kAlone.
void measureAlone(Side& side, std::uint32_t count);

/// The sides in turn, each round beginning with another one, after one round that isn't counted.
void inTurn(std::span<Side> sides, void (*measure)(Side&, std::uint32_t), std::uint32_t rounds,
            std::uint32_t count);

/// A row of one figure of both; of ours alone, and why, when there is no baseline.
[[nodiscard]] Row against(Row row, const Side& ours, const Side* baseline, Side::Figure figure,
                          std::optional<double> wantedP50 = {},
                          std::optional<double> wantedP99 = {});

}  // namespace bench
