#pragma once

#include <cstdint>

namespace orvane::RobotSdk::error {

/// The high-level client's error codes, as getLastError() hands them out.
inline constexpr std::uint32_t kNone = 0;
inline constexpr std::uint32_t kNoEndpoint = 1;  ///< no RPC client or endpoint
inline constexpr std::uint32_t kAcquireFailed =
    2;                                          ///< acquisition of control failed or was given up
inline constexpr std::uint32_t kTransport = 3;  ///< the request was not delivered or not answered
inline constexpr std::uint32_t kLeaseExpired = 4;    ///< the lease of control ran out
inline constexpr std::uint32_t kControlRevoked = 5;  ///< control was revoked or taken by another
inline constexpr std::uint32_t kNotConnected = 6;
inline constexpr std::uint32_t kNoControl = 7;  ///< the client does not hold motion control
inline constexpr std::uint32_t kNoFreshData = 8;
inline constexpr std::uint32_t kRefused =
    9;  ///< the server refused (also bad text in media requests)
inline constexpr std::uint32_t kBadText = 10;  ///< bad JSON text in a motion request

}  // namespace orvane::RobotSdk::error
