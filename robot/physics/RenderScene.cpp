#include "physics/RenderScene.h"

#include <GL/osmesa.h>
#include <dlfcn.h>
#include <mujoco/mujoco.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

#include "physics/World.h"

namespace orvane::robot {
namespace {

constexpr char kLibrary[] = "libOSMesa.so.8";
constexpr char kHelp[] = "--render draws with Mesa: install libosmesa6";
constexpr int kMostShapes = 200;

// The camera, beside and a little above the robot.
constexpr double kDistance = 1.25;      // m from what it looks at
constexpr double kAzimuth = 125;        // degrees, of its view in the world
constexpr double kElevation = -20;      // degrees
constexpr double kLookHeight = 0.2;     // m
constexpr double kFollowSeconds = 0.3;  // it lags behind the trunk, so as not to tremble with it

/// Mesa's functions, loaded when they are wanted, so that nobody else needs Mesa. MuJoCo looks for
/// OpenGL by OSMesaGetProcAddress among the process's global symbols. The library stays loaded:
/// MuJoCo keeps pointers into it.
struct Mesa {
  Mesa() {
    void* const library = ::dlopen(kLibrary, RTLD_NOW | RTLD_GLOBAL);
    if (library == nullptr) throw std::runtime_error(std::string(kHelp) + " (" + ::dlerror() + ")");
    find(library, "OSMesaCreateContextExt", create);
    find(library, "OSMesaMakeCurrent", makeCurrent);
    find(library, "OSMesaDestroyContext", destroy);
  }

  template <class Function>
  static void find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(::dlsym(library, name));
    if (function == nullptr) throw std::runtime_error(std::string(kHelp) + " (no " + name + ")");
  }

  decltype(&::OSMesaCreateContextExt) create = nullptr;
  decltype(&::OSMesaMakeCurrent) makeCurrent = nullptr;
  decltype(&::OSMesaDestroyContext) destroy = nullptr;
};

/// MuJoCo keeps one set of OpenGL functions for the process.
class OnlyOne {
 public:
  OnlyOne() {
    if (taken_.exchange(true)) throw std::runtime_error("one robot in a process can be rendered");
  }
  ~OnlyOne() { taken_ = false; }
  OnlyOne(const OnlyOne&) = delete;
  OnlyOne& operator=(const OnlyOne&) = delete;

 private:
  static inline std::atomic<bool> taken_{false};
};

/// OpenGL on this thread while it lives. MuJoCo draws into buffers of its own; this one only has to
/// be there.
class Context {
 public:
  Context() {
    context_ = mesa_.create(OSMESA_RGBA, 24, 0, 0, nullptr);
    if (context_ == nullptr) throw std::runtime_error("Mesa has no context for --render");
    if (mesa_.makeCurrent(context_, buffer_.data(), GL_UNSIGNED_BYTE, kSide, kSide) == GL_FALSE) {
      mesa_.destroy(context_);
      throw std::runtime_error("Mesa can't draw for --render on this thread");
    }
  }
  ~Context() {
    mesa_.makeCurrent(nullptr, nullptr, 0, 0, 0);
    mesa_.destroy(context_);
  }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

 private:
  static constexpr int kSide = 16;

  const Mesa mesa_;
  std::array<std::uint8_t, kSide * kSide * 4> buffer_{};
  OSMesaContext context_ = nullptr;
};

}  // namespace

Pose Pose::of(World& world) {
  Pose pose;
  pose.seconds = world.data().time;
  std::copy_n(world.data().qpos, kNumbers, pose.positions.begin());
  return pose;
}

/// All that is needed to draw, freed in the reverse order.
struct RenderScene::Stage {
  Stage(const Variation& variation, int width, int height) : world(variation) {
    mjv_defaultCamera(&camera);
    mjv_defaultOption(&option);
    mjv_defaultScene(&scene);
    mjr_defaultContext(&drawing);
    const mjModel& model = world.model();
    mjv_makeScene(&model, &scene, kMostShapes);
    mjr_makeContext(&model, &drawing, mjFONTSCALE_100);
    mjr_setBuffer(mjFB_OFFSCREEN, &drawing);
    if (drawing.currentBuffer != mjFB_OFFSCREEN || drawing.offWidth < width ||
        drawing.offHeight < height) {
      close();
      throw std::runtime_error("Mesa has no room for pictures of that size");
    }
    camera.type = mjCAMERA_FREE;
    camera.distance = kDistance;
    camera.azimuth = kAzimuth;
    camera.elevation = kElevation;
    camera.lookat[2] = kLookHeight;
  }
  ~Stage() { close(); }
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  void close() {
    mjr_freeContext(&drawing);
    mjv_freeScene(&scene);
  }

  void follow(const Pose& pose) {
    const double passed = pose.seconds - drawn;
    drawn = pose.seconds;
    const double share = passed > 0 ? 1 - std::exp(-passed / kFollowSeconds) : 1;
    for (std::size_t axis = 0; axis < 2; ++axis) {
      camera.lookat[axis] += share * (pose.positions[axis] - camera.lookat[axis]);
    }
  }

  const OnlyOne only;
  const Context context;
  World world;
  mjvCamera camera;
  mjvOption option;
  mjvScene scene;
  mjrContext drawing;
  double drawn = std::numeric_limits<double>::infinity();  // time of the pose drawn last
};

RenderScene::RenderScene(const Variation& variation, int width, int height)
    : stage_(std::make_unique<Stage>(variation, width, height)) {
  picture_.width = width;
  picture_.height = height;
  picture_.rgb.resize(static_cast<std::size_t>(width * height * 3));
}

RenderScene::~RenderScene() = default;

Pose RenderScene::startPose() {
  return Pose::of(stage_->world);
}

const Picture& RenderScene::draw(const Pose& pose) {
  Stage& stage = *stage_;
  const mjModel& model = stage.world.model();
  mjData& data = stage.world.data();
  std::copy(pose.positions.begin(), pose.positions.end(), data.qpos);
  mj_kinematics(&model, &data);
  mj_comPos(&model, &data);
  mj_camlight(&model, &data);
  stage.follow(pose);
  mjv_updateScene(&model, &data, &stage.option, nullptr, &stage.camera, mjCAT_ALL, &stage.scene);
  const mjrRect all{0, 0, picture_.width, picture_.height};
  mjr_render(all, &stage.scene, &stage.drawing);
  mjr_readPixels(picture_.rgb.data(), nullptr, all, &stage.drawing);
  // OpenGL's first row is the lowest.
  const auto row = static_cast<std::ptrdiff_t>(picture_.width) * 3;
  for (std::ptrdiff_t low = 0, high = picture_.height - 1; low < high; ++low, --high) {
    std::swap_ranges(picture_.rgb.begin() + low * row, picture_.rgb.begin() + (low + 1) * row,
                     picture_.rgb.begin() + high * row);
  }
  return picture_;
}

}  // namespace orvane::robot
