#include "physics/World.h"

#include <mujoco/mujoco.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>

#include "body/LegKinematics.h"
#include "physics/Model.h"
#include "physics/MuJoCoHandlers.h"

namespace orvane::robot {
namespace {

constexpr char kFileName[] = "quadruped.xml";

mjModel* load(const std::string& text) {
  installMuJoCoHandlers();
  auto files = std::make_unique<mjVFS>();
  mj_defaultVFS(files.get());
  const auto size = static_cast<int>(text.size());
  if (mj_makeEmptyFileVFS(files.get(), kFileName, size) != 0) {
    throw std::runtime_error("no room for the physics model");
  }
  const int index = mj_findFileVFS(files.get(), kFileName);
  std::memcpy(files->filedata[index], text.data(), text.size());
  std::array<char, 512> error{};
  mjModel* model = mj_loadXML(kFileName, files.get(), error.data(), static_cast<int>(error.size()));
  mj_deleteVFS(files.get());
  if (model == nullptr) throw std::runtime_error(std::string("physics model: ") + error.data());
  return model;
}

/// Share of its torque that a motor has left to drive at that speed; it can brake with all of it.
double drivingShare(double speed) {
  return std::clamp((kNoTorqueSpeed - speed) / (kNoTorqueSpeed - kFullTorqueSpeed), 0.0, 1.0);
}

/// The last step gave figures that aren't finite, or beyond all sense.
bool isUpset(const mjModel& model, const mjData& data) {
  const auto makesSense = [](mjtNum figure) { return std::abs(figure) < mjMAXVAL; };
  return data.warning[mjWARN_BADQPOS].number > 0 || data.warning[mjWARN_BADQVEL].number > 0 ||
         data.warning[mjWARN_BADQACC].number > 0 ||
         !std::all_of(data.qpos, data.qpos + model.nq, makesSense) ||
         !std::all_of(data.qvel, data.qvel + model.nv, makesSense);
}

}  // namespace

/// Where the model keeps what is read and written.
struct World::Addresses {
  explicit Addresses(const mjModel& model) {
    for (std::size_t index = 0; index < kJoints; ++index) {
      const std::string name =
          kJointNames[index % kJointsPerLeg] + std::to_string(index / kJointsPerLeg);
      const int joint = mj_name2id(&model, mjOBJ_JOINT, name.c_str());
      position[index] = model.jnt_qposadr[joint];
      velocity[index] = model.jnt_dofadr[joint];
      motor[index] = mj_name2id(&model, mjOBJ_ACTUATOR, name.c_str());
    }
    const auto sensor = [&model](const std::string& name) {
      return model.sensor_adr[mj_name2id(&model, mjOBJ_SENSOR, name.c_str())];
    };
    accel = sensor("accel");
    gyro = sensor("gyro");
    attitude = sensor("attitude");
    for (std::size_t leg = 0; leg < kLegs; ++leg) foot[leg] = sensor("foot" + std::to_string(leg));
    trunk = mj_name2id(&model, mjOBJ_BODY, "trunk");
  }

  std::array<int, kJoints> position{};
  std::array<int, kJoints> velocity{};
  std::array<int, kJoints> motor{};
  std::array<int, kLegs> foot{};
  int accel = 0;
  int gyro = 0;
  int attitude = 0;
  int trunk = 0;
};

/// Normal noise by a rule of our own, so that it is the same with every standard library.
struct World::Noise {
  explicit Noise(std::uint32_t seed) : random(seed) {}

  double operator()(double deviation) {
    if (deviation == 0) return 0;
    double sum = -6;
    for (int i = 0; i < 12; ++i) sum += static_cast<double>(random()) / 4294967296.0;
    return deviation * sum;
  }

  std::mt19937 random;
};

void World::ModelFree::operator()(mjModel* model) const {
  mj_deleteModel(model);
}

void World::DataFree::operator()(mjData* data) const {
  mj_deleteData(data);
}

World::World(const Variation& variation)
    : variation_(variation),
      model_(load(quadrupedModel(variation))),
      data_(mj_makeData(model_.get())),
      addresses_(std::make_unique<Addresses>(*model_)),
      noise_(std::make_unique<Noise>(variation.noiseSeed)) {
  std::array<double, kJoints> angles{};
  Noise spread(variation.noiseSeed + 1);
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    const LegAngles lying =
        legAngles(leg, {0, sideOf(leg) * kGeometry.hipLength, -(kLyingHeight - kFootRadius)});
    for (std::size_t joint = 0; joint < kJointsPerLeg; ++joint) {
      const double off = joint == 0 ? 0 : spread(variation.startJointSpread / 2);
      angles[leg * kJointsPerLeg + joint] = lying[joint] + off;
    }
  }
  TruePose start;
  start.position = {0, 0, kLyingHeight};
  start.quaternion = {std::cos(variation.startYaw / 2), 0, 0, std::sin(variation.startYaw / 2)};
  place(start, angles);
}

World::~World() = default;

void World::place(const TruePose& pose, const std::array<double, kJoints>& angles) {
  push_ = {};
  pushSeconds_ = 0;
  settle(pose, angles);
  sense();
}

void World::settle(const TruePose& pose, const std::array<double, kJoints>& angles) {
  mj_resetData(model_.get(), data_.get());
  for (std::size_t axis = 0; axis < 3; ++axis) data_->qpos[axis] = pose.position[axis];
  for (std::size_t part = 0; part < 4; ++part) data_->qpos[3 + part] = pose.quaternion[part];
  for (std::size_t index = 0; index < kJoints; ++index) {
    const JointLimit& range = kJointLimits[index % kJointsPerLeg];
    data_->qpos[addresses_->position[index]] = std::clamp(angles[index], range.lower, range.upper);
  }
  mj_forward(model_.get(), data_.get());
  double deepest = 0;
  for (int i = 0; i < data_->ncon; ++i) deepest = std::min(deepest, data_->contact[i].dist);
  data_->qpos[2] -= deepest;
  mj_forward(model_.get(), data_.get());
}

void World::push(const Vector3& force, double seconds) {
  push_ = force;
  pushSeconds_ = seconds;
}

void World::drive(const JointCommands& commands, bool powered) {
  for (std::size_t index = 0; index < kJoints; ++index) {
    const JointCommand& command = commands[index];
    const double kp = powered ? command.kp : 0;
    const double kd = powered ? command.kd : kBrakeDamping;
    const double ctrl =
        powered ? kp * command.position + kd * command.velocity + command.torque : 0;
    const double speed = data_->qvel[addresses_->velocity[index]];
    const double most = kJointLimits[index % kJointsPerLeg].maxTorque;
    const double limit = powered ? std::clamp(command.maxTorque, 0.0, most) : most;
    const double driving = std::min(limit, most * drivingShare(std::abs(speed)));
    const int motor = addresses_->motor[index];
    model_->actuator_biasprm[motor * mjNBIAS + 1] = -kp;
    model_->actuator_biasprm[motor * mjNBIAS + 2] = -kd;
    model_->actuator_forcerange[motor * 2] = speed < 0 ? -driving : -limit;
    model_->actuator_forcerange[motor * 2 + 1] = speed > 0 ? driving : limit;
    data_->ctrl[motor] = ctrl;
  }
}

void World::step(const JointCommands& commands, bool powered) {
  drive(commands, powered);
  const bool pushed = pushSeconds_ > 0;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    data_->xfrc_applied[addresses_->trunk * 6 + static_cast<int>(axis)] = pushed ? push_[axis] : 0;
  }
  if (pushed) pushSeconds_ -= kPhysicsStep;
  const double time = data_->time;
  const TruePose before = pose();
  std::array<double, kJoints> angles{};
  for (std::size_t index = 0; index < kJoints; ++index) {
    angles[index] = data_->qpos[addresses_->position[index]];
  }
  mj_step(model_.get(), data_.get());
  if (isUpset(*model_, *data_)) {
    // By now the library may have put the model to where it is drawn, and its clock to 0.
    ++upsets_;
    settle(before, angles);
    data_->time = time + kPhysicsStep;
  }
  sense();
}

void World::sense() {
  Noise& noise = *noise_;
  const Addresses& at = *addresses_;
  const mjtNum* sensors = data_->sensordata;
  for (std::size_t index = 0; index < kJoints; ++index) {
    readings_.position[index] = data_->qpos[at.position[index]] + noise(variation_.positionNoise);
    readings_.velocity[index] = data_->qvel[at.velocity[index]] + noise(variation_.velocityNoise);
    readings_.torque[index] = data_->actuator_force[at.motor[index]];
  }
  for (std::size_t axis = 0; axis < 3; ++axis) {
    readings_.accel[axis] =
        sensors[at.accel + static_cast<int>(axis)] + noise(variation_.accelNoise);
    readings_.gyro[axis] = sensors[at.gyro + static_cast<int>(axis)] + noise(variation_.gyroNoise);
  }
  double norm = 0;
  for (std::size_t part = 0; part < 4; ++part) {
    const double turned = noise(variation_.attitudeNoise / 2);
    readings_.attitude[part] = sensors[at.attitude + static_cast<int>(part)] + turned;
    norm += readings_.attitude[part] * readings_.attitude[part];
  }
  for (double& part : readings_.attitude) part /= std::sqrt(norm);
  for (std::size_t leg = 0; leg < kLegs; ++leg) readings_.footForce[leg] = sensors[at.foot[leg]];
}

TruePose World::pose() const {
  TruePose pose;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    pose.position[axis] = data_->qpos[axis];
    pose.velocity[axis] = data_->qvel[axis];
    pose.rates[axis] = data_->qvel[3 + axis];
  }
  for (std::size_t part = 0; part < 4; ++part) pose.quaternion[part] = data_->qpos[3 + part];
  return pose;
}

}  // namespace orvane::robot
