#include "physics/Render.h"

#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "pbase/CTime.h"

namespace orvane::robot {
namespace {

using Pexal::PBase::CThread;
using Pexal::PBase::CTime;

/// How pictures of one kind are taken.
struct Format {
  int width;
  int height;
  int periodMs;
};
constexpr Format kStill{960, 640, 1000};
constexpr Format kAnimated{480, 320, 80};

constexpr std::uint64_t kFirstPictureUs = 60'000'000;  // Mesa compiles its shaders first
constexpr int kNiceness = 10;
constexpr double kMoved = 0.01;     // m or rad; less is standing still
constexpr int kPauseAfterMs = 400;  // of standing still
constexpr double kNotSeenYet = -1;  // time of a pose

PictureKind kindOf(const RenderSettings& settings) {
  const auto kind = pictureKindOf(settings.file);
  if (kind) return *kind;
  throw std::runtime_error(
      "--render takes a file that ends in .png (a picture, renewed each second) or in .webp (an "
      "animation), not " +
      settings.file);
}

int millisecondsOf(const RenderSettings& settings) {
  const double seconds = settings.seconds;
  if (seconds >= 1 && seconds <= 600) return static_cast<int>(seconds * 1000);
  throw std::runtime_error("an animation lasts 1 to 600 s");
}

bool sameBut(const Pose& pose, const Pose& other, double most) {
  return std::equal(pose.positions.begin(), pose.positions.end(), other.positions.begin(),
                    [most](double one, double two) { return std::abs(one - two) < most; });
}

}  // namespace

/// What the thread has for itself: it draws, and knows what comes into the file.
class Renderer::Camera {
 public:
  Camera(const RenderSettings& settings, const Variation& variation)
      : file_(settings.file),
        kind_(kindOf(settings)),
        format_(kind_ == PictureKind::kStill ? kStill : kAnimated),
        mostMs_(millisecondsOf(settings)) {
    expectWritable(file_);
    scene_ = std::make_unique<RenderScene>(variation, format_.width, format_.height);
    seen_ = shown_ = scene_->startPose();
    if (kind_ == PictureKind::kAnimation) {
      animation_ = std::make_unique<Animation>(format_.width, format_.height);
    }
    take();
  }

  [[nodiscard]] int periodMs() const { return format_.periodMs; }
  [[nodiscard]] std::size_t pictures() const { return pictures_; }
  [[nodiscard]] double seconds() const { return endMs_ / 1000.0; }

  /// A picture of that pose, unless the animation is full or pauses.
  void look(const Pose& pose) {
    const int passedMs = static_cast<int>(std::lround((pose.seconds - seen_.seconds) * 1000));
    if (kind_ == PictureKind::kAnimation && !animation_) return finish();
    if (kind_ == PictureKind::kAnimation && passedMs <= 0) return;
    seen_ = pose;
    if (kind_ == PictureKind::kAnimation && !runs(passedMs)) return;
    take();
    if (endMs_ >= mostMs_) finish();
  }

  /// Writes the animation, unless that is done. After a failure the next call tries again.
  void finish() {
    if (animation_) content_ = std::exchange(animation_, nullptr)->finish(endMs_);
    if (content_.empty()) return;
    replaceFile(file_, content_);
    content_.clear();
  }

 private:
  /// Lets the animation's time pass. False: it pauses.
  bool runs(int passedMs) {
    if (sameBut(seen_, shown_, kMoved)) {
      stillMs_ += passedMs;
    } else {
      stillMs_ = 0;
      shown_ = seen_;
    }
    if (stillMs_ > kPauseAfterMs) return false;
    atMs_ = std::min(atMs_ + passedMs, mostMs_ - 1);
    return true;
  }

  void take() {
    const Picture& picture = scene_->draw(seen_);
    if (kind_ == PictureKind::kStill) {
      replaceFile(file_, toPng(picture));
    } else {
      animation_->add(picture, atMs_);
      endMs_ = std::min(atMs_ + format_.periodMs, mostMs_);
    }
    ++pictures_;
  }

  const std::string file_;
  const PictureKind kind_;
  const Format format_;
  const int mostMs_;
  std::unique_ptr<RenderScene> scene_;
  std::unique_ptr<Animation> animation_;  // until it is full
  std::vector<std::uint8_t> content_;     // of the file, until it is written
  Pose seen_;                             // the last
  Pose shown_;                            // where it moved last
  int stillMs_ = 0;                       // since when it doesn't
  int atMs_ = 0;                          // of the last picture, in the animation
  int endMs_ = 0;
  std::size_t pictures_ = 0;
};

Renderer::Renderer(const RenderSettings& settings, const Variation& variation)
    : settings_(settings),
      variation_(variation),
      pose_(Pose{kNotSeenYet, {}}),
      thread_("robot:pictures", 0, 0, 0, [this] { run(); }) {
  if (!thread_.createThread()) throw std::runtime_error("no thread for --render");
  bool works = false;
  {
    std::unique_lock lock(mutex_);
    changed_.waitUntil(lock, CTime::getCurrentMicroSecond() + kFirstPictureUs,
                       [this] { return settled_; });
    works = works_;
  }
  if (works) return;
  stop();
  throw std::runtime_error(report_.error.empty() ? "no picture within a minute" : report_.error);
}

FilmReport Renderer::finish() {
  stop();
  return report_;
}

void Renderer::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notifyAll();
  while (!thread_.isThreadOver()) CThread::sleep(1);
}

void Renderer::settle(bool works) {
  {
    const std::lock_guard lock(mutex_);
    settled_ = true;
    works_ = works;
  }
  changed_.notifyAll();
}

void Renderer::run() {
  ::setpriority(PRIO_PROCESS, 0, kNiceness);  // of this thread and those that it starts
  try {
    Camera camera(settings_, variation_);
    settle(true);
    film(camera);
  } catch (const std::exception& error) {
    report_.error = error.what();
    settle(false);
  }
}

void Renderer::film(Camera& camera) {
  // What goes wrong once (a full disk) may go well the next time.
  const auto attempt = [this](const auto& work) {
    try {
      work();
      report_.error.clear();
    } catch (const std::exception& error) {
      report_.error = error.what();
    }
  };
  const auto look = [&] {
    if (const Pose& pose = pose_.newest(); pose.seconds != kNotSeenYet) camera.look(pose);
  };
  const auto periodUs = static_cast<std::uint64_t>(camera.periodMs()) * 1000;
  std::uint64_t nextUs = CTime::getCurrentMicroSecond() + periodUs;
  while (!stopsBefore(nextUs)) {
    attempt(look);
    nextUs = std::max(nextUs + periodUs, CTime::getCurrentMicroSecond());
  }
  attempt(look);
  attempt([&] { camera.finish(); });
  report_.pictures = camera.pictures();
  report_.seconds = camera.seconds();
}

bool Renderer::stopsBefore(std::uint64_t deadlineUs) {
  std::unique_lock lock(mutex_);
  return changed_.waitUntil(lock, deadlineUs, [this] { return stopping_; });
}

}  // namespace orvane::robot
