#pragma once

#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace robotctl::doctor {

enum class Verdict {
  kOk,
  kWarning,  ///< works, but less well than it could, or only for some
  kProblem,  ///< an application wouldn't work
};

/// What one check found.
struct Finding {
  std::string check;  ///< stable name for scripts, "network.multicast"
  Verdict verdict = Verdict::kOk;
  std::string subject;  ///< for people, "multicast on lo"
  std::string seen;
  std::string meaning;  ///< empty when fine
  std::string cure;     ///< what to type or do; empty when fine
};

using Findings = std::vector<Finding>;

inline void append(Findings& all, Findings more) {
  all.insert(all.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

}  // namespace robotctl::doctor
