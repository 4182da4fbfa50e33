#include "physics/Model.h"

#include <array>
#include <charconv>
#include <string_view>

#include "body/LegKinematics.h"

namespace orvane::robot {
namespace {

constexpr double kHipMass = 0.60;
constexpr double kThighMass = 0.95;
constexpr double kCalfMass = 0.13;
constexpr double kFootMass = 0.06;
constexpr double kLegMass = kHipMass + kThighMass + kCalfMass + kFootMass;
constexpr double kTrunkMass = kBodyMass - kLegs * kLegMass;

/// Of a motor's rotor behind its gear, as the joint feels it, kg m^2.
constexpr std::array<double, kJointsPerLeg> kRotorInertia{0.011, 0.011, 0.017};
constexpr double kJointDamping = 0.05;   // N m s/rad
constexpr double kJointFriction = 0.15;  // N m

void appendFigure(std::string& text, double figure) {
  std::array<char, 32> digits{};
  // Unlike printf it writes a point in every locale.
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), figure).ptr;
  text.append(digits.data(), end);
}
void appendFigure(std::string& text, std::size_t number) {
  text += std::to_string(number);
}
void appendFigure(std::string& text, const char* word) {
  text += word;
}

/// `pattern`, with the figures where it has a %.
template <class... Figures>
void append(std::string& text, std::string_view pattern, const Figures&... figures) {
  [[maybe_unused]] const auto next = [&](const auto& figure) {
    const std::size_t place = pattern.find('%');
    text += pattern.substr(0, place);
    appendFigure(text, figure);
    pattern.remove_prefix(place + 1);
  };
  (next(figures), ...);
  text += pattern;
}

void appendJoint(std::string& text, std::size_t leg, std::size_t joint) {
  const JointLimit& limit = kJointLimits[joint];
  append(text,
         "<joint name='%%' axis='%' range='% %' armature='%' damping='%' "
         "frictionloss='%'/>\n",
         kJointNames[joint], leg, joint == 0 ? "1 0 0" : "0 1 0", limit.lower, limit.upper,
         kRotorInertia[joint], kJointDamping, kJointFriction);
}

void appendLeg(std::string& text, std::size_t leg) {
  const Vector3 hip = hipOf(leg);
  const double aside = sideOf(leg) * kGeometry.hipLength;
  append(text, "<body name='hip%' pos='% % 0'>\n", leg, hip[0], hip[1]);
  appendJoint(text, leg, 0);
  append(text, "<geom class='dark' type='cylinder' fromto='0 % 0 0 % 0' size='0.042' mass='%'/>\n",
         aside * 0.35, aside * 0.85, kHipMass);
  append(text, "<body name='thigh%' pos='0 % 0'>\n", leg, aside);
  appendJoint(text, leg, 1);
  append(text,
         "<geom class='light' type='capsule' fromto='0 0 -0.02 0 0 %' size='0.024' mass='%'/>\n",
         -kGeometry.thighLength, kThighMass);
  append(text, "<body name='calf%' pos='0 0 %'>\n", leg, -kGeometry.thighLength);
  appendJoint(text, leg, 2);
  append(text, "<geom class='dark' type='capsule' fromto='0 0 0 0 0 %' size='0.013' mass='%'/>\n",
         -kGeometry.calfLength + 0.02, kCalfMass);
  append(text, "<geom name='foot%' class='foot' type='sphere' pos='0 0 %' size='%' mass='%'/>\n",
         leg, -kGeometry.calfLength, kFootRadius, kFootMass);
  append(text, "<site name='foot%' type='sphere' pos='0 0 %' size='%' rgba='0 0 0 0'/>\n", leg,
         -kGeometry.calfLength, kFootRadius + 0.004);
  text += "</body></body></body>\n";
}

}  // namespace

std::string quadrupedModel(const Variation& variation) {
  std::string text = "<mujoco model='quadruped'>\n";
  append(text,
         "<compiler autolimits='true' angle='radian'/>\n<option timestep='%' "
         "integrator='implicit' cone='elliptic' impratio='10' "
         "iterations='20'/>\n",
         kPhysicsStep);
  append(text, "<size nconmax='64' njmax='300'/>\n");
  // How far shadows and haze reach goes by the extent; without, it is that of the ground.
  text += "<statistic extent='1' center='0 0 .2'/>\n";
  text +=
      "<visual><global offwidth='960' offheight='640'/><quality shadowsize='2048'/>"
      "<headlight ambient='.35 .35 .35' diffuse='.25 .25 .25' specular='.1 .1 .1'/></visual>\n";
  text +=
      "<asset><texture name='sky' type='skybox' builtin='gradient' rgb1='.75 .85 .95' rgb2='.95 "
      ".97 1' "
      "width='64' height='64'/><texture name='tiles' type='2d' builtin='checker' rgb1='.66 .70 "
      ".74' "
      "rgb2='.57 .61 .66' width='256' height='256'/><material name='tiles' texture='tiles' "
      "texrepeat='1 1' texuniform='true'/></asset>\n";
  // Robot and ground touch, parts of the robot don't touch each other.
  append(text,
         "<default><geom contype='2' conaffinity='1' friction='% 0.01 0.0005' solref='0.01 1' "
         "condim='3'/>\n",
         variation.friction);
  text +=
      "<default class='hull'><geom rgba='.95 .52 .10 1'/></default>"
      "<default class='light'><geom rgba='.80 .82 .86 1'/></default>"
      "<default class='dark'><geom rgba='.22 .24 .28 1'/></default>"
      "<default class='foot'><geom rgba='.08 .08 .09 1'/></default></default>\n";
  text += "<worldbody>\n";
  append(text,
         "<geom name='ground' type='plane' size='100 100 1' material='tiles' contype='1' "
         "conaffinity='2' friction='% 0.01 0.0005'/>\n",
         variation.friction);
  append(text, "<body name='trunk' pos='0 0 %'><freejoint name='base'/>\n", kLyingHeight + 0.01);
  text +=
      "<site name='imu'/>\n<light mode='track' directional='true' pos='-.9 -.9 3' dir='.3 .3 -1' "
      "diffuse='.75 .75 .75'/>\n";
  const double mass = kTrunkMass + variation.trunkMass;
  // A rounded hull around a heavy core; the belly is kLyingHeight below the hips.
  append(text, "<geom class='hull' type='box' size='0.16 0.055 0.045' mass='%'/>\n", mass * 0.8);
  for (const double side : {-1.0, 1.0}) {
    append(text,
           "<geom class='dark' type='capsule' fromto='-0.15 % % 0.15 % %' size='0.025' "
           "mass='%'/>\n",
           side * 0.045, -kLyingHeight + 0.025, side * 0.045, -kLyingHeight + 0.025, mass * 0.06);
    append(text,
           "<geom class='hull' type='capsule' fromto='-0.14 % 0.035 0.14 % 0.035' size='0.02' "
           "mass='%'/>\n",
           side * 0.045, side * 0.045, mass * 0.03);
  }
  append(text,
         "<geom class='dark' type='sphere' pos='0.21 0 0.01' size='0.045' mass='%'/>\n"
         "<geom class='light' type='sphere' pos='-0.20 0 0.01' size='0.035' mass='%'/>\n",
         mass * 0.01, mass * 0.01);
  for (std::size_t leg = 0; leg < kLegs; ++leg) appendLeg(text, leg);
  text += "</body></worldbody>\n<actuator>\n";
  // torque = ctrl - kp * position - kd * velocity, with the gains of the command (World sets them).
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    for (std::size_t joint = 0; joint < kJointsPerLeg; ++joint) {
      const double limit = kJointLimits[joint].maxTorque;
      append(text,
             "<general name='%%' joint='%%' gaintype='fixed' biastype='affine' gainprm='1' "
             "biasprm='0 0 0' forcelimited='true' forcerange='% %'/>\n",
             kJointNames[joint], leg, kJointNames[joint], leg, -limit, limit);
    }
  }
  text +=
      "</actuator>\n<sensor><accelerometer name='accel' site='imu'/><gyro name='gyro' site='imu'/>"
      "<framequat name='attitude' objtype='site' objname='imu'/>";
  for (std::size_t leg = 0; leg < kLegs; ++leg)
    append(text, "<touch name='foot%' site='foot%'/>", leg, leg);
  text += "</sensor>\n</mujoco>\n";
  return text;
}

}  // namespace orvane::robot
