#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace orvane::robot {

/// To whom a robot shows itself.
enum class Deployment {
  kHost,   ///< applications on other machines: one DDS domain, on a network interface
  kBoard,  ///< applications on the robot's own board: its two DDS domains, its shared memory
};

/// How low-level clients on other machines meet the robot: three DDS topics, no server. As it is
/// here, every client matches whatever reliability it asks for.
struct SimulationSettings {
  bool enabled = true;
  std::uint32_t domain = 42;  ///< DDS domain, 0 to 230; on the interface of the host deployment
  std::string controlTopic = "motion/control";    ///< MotionCtrl_, taken by the robot
  std::string observedTopic = "motion/observed";  ///< MotionObserved_
  std::string trcTopic = "motion/trc";            ///< RemoteControl_
  bool reliableControl = false;  ///< true: commands of best-effort writers aren't heard
  bool reliableObserved = true;  ///< false: not for readers that ask for reliable
  bool reliableTrc = true;
  std::string gamepad;  ///< script, joystick device or FIFO of its events; empty: no remote control
};

/// What the robot moves.
enum class BodyKind {
  kKinematic,  ///< no weight: follows its commands; cheap enough for fleets
  kPhysics,    ///< motors, contacts and weight; only where the program was built with MuJoCo
};
#ifdef ORVANE_WITH_PHYSICS
inline constexpr bool kHasPhysics = true;
#else
inline constexpr bool kHasPhysics = false;
#endif

/// Pictures of a physical body.
struct RenderSettings {
  /// Ends in .png: one picture, renewed each second; in .webp: an animation. Empty: none. One robot
  /// in a process can have one.
  std::string file;
  double seconds = 20;  ///< that an animation lasts at most, 1 to 600
};

struct RobotSettings {
  std::string deviceId = "VR-0001";  ///< 1 to 64 letters, digits, '-', '_', '.' or ':'
  std::set<Deployment> deployments{Deployment::kHost};  ///< at least one
  BodyKind body = BodyKind::kKinematic;
  std::uint32_t seed = 0;  ///< of a physical body: which one of many, 0: as drawn
  RenderSettings render;
  double chargePercent = 100;       ///< of the battery at the start
  std::string version = "1.0.0";    ///< that it tells of itself
  std::vector<std::string> faults;  ///< carried out when it starts, see parseFault

  // For external hosts only.
  std::string interface = "lo";  ///< network interface, by name
  std::uint32_t domain = 42;     ///< DDS domain, 0 to 230
  /// 0 or 0.1 to 100: how much of its DDS packets is lost on the way out. Only where this process
  /// hasn't joined the domain before.
  double lossPercent = 0;
  SimulationSettings simulation;

  [[nodiscard]] bool serves(Deployment deployment) const {
    return deployments.count(deployment) > 0;
  }
};

}  // namespace orvane::robot
