#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/Options.h"
#include "doctor/Finding.h"

/// What this machine is for the library.
namespace robotctl::doctor {

/// A domain that applications on this machine join.
struct Domain {
  std::uint32_t id;
  std::string name;     ///< "host", "brain", "cere"
  std::string profile;  ///< the board's file with its settings; empty on an external host
};

struct Machine {
  bool board = false;
  std::vector<Domain> domains;  ///< at least one
  /// What DDS is told to use: of --interface, or of the board's profile; empty: DDS chooses.
  std::string interface;

  [[nodiscard]] const char* deployment() const { return board ? "robot board" : "external host"; }
};

/// By the rule that the library goes by.
[[nodiscard]] Machine lookAtMachine(const CommonOptions& options);

/// Whether it is half a board, whether the board's profiles are there, whether --config's file can
/// be read.
[[nodiscard]] Findings checkSetUp(const Machine& machine, const CommonOptions& options);

/// The settings that the library uses for a domain: the board's file, or XML text.
[[nodiscard]] std::string ddsSettings(const Domain& domain, const std::string& interface);

}  // namespace robotctl::doctor
