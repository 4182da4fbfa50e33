#pragma once

#include <cstddef>
#include <string>

namespace orvane::robot {

/// What came of a film.
struct FilmReport {
  std::string error;         ///< a sentence for people; empty: all of it is in the file
  std::size_t pictures = 0;  ///< that were taken
  double seconds = 0;        ///< that the animation lasts; 0 for a single picture
};

/// Pictures of a body that moves, taken beside it.
class Film {
 public:
  virtual ~Film() = default;
  Film(const Film&) = delete;
  Film& operator=(const Film&) = delete;

  /// Takes the last picture, writes the file and ends; for the owner's thread, also while the body
  /// still moves. Takes as long as one picture and the file's writing. Once more: the same report.
  virtual FilmReport finish() = 0;

 protected:
  Film() = default;
};

}  // namespace orvane::robot
