// Pictures of a robot with weight, as files that others read.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <png.h>
#include <webp/demux.h>

#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>

#include "BodyFactory.h"
#include "body/LegKinematics.h"
#include "pbase/CThread.h"
#include "pbase/ILogger.h"
#include "pbase/VirtualClock.h"
#include "physics/Model.h"
#include "physics/Render.h"
#include "sdk_process.h"

namespace orvane::robot {
namespace {

using Pexal::PBase::CThread;

constexpr std::uint32_t kFrameMs = 80;
constexpr std::uint32_t kWatchdogMs = 100'000;  // Mesa computes long on a busy machine

std::string pathOf(const std::string& name) {
  return testing::TempDir() + name;
}

std::string contentOf(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

/// Level at `x`, on legs that hold the hips at `height`.
Pose poseAt(double x, double height) {
  Pose pose;
  pose.positions = {x, 0, height, 1};
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    const LegAngles angles =
        legAngles(leg, {0, sideOf(leg) * kGeometry.hipLength, kFootRadius - height});
    std::copy(angles.begin(), angles.end(), pose.positions.begin() + 7 + 3 * leg);
  }
  return pose;
}

/// The rows in which the trunk's colour, which nothing else has, is seen.
struct Rows {
  int top = std::numeric_limits<int>::max();
  int bottom = -1;
  int pixels = 0;
};

Rows trunkIn(const Picture& picture) {
  Rows rows;
  for (int at = 0; at < picture.width * picture.height; ++at) {
    const std::uint8_t* const pixel = &picture.rgb[static_cast<std::size_t>(at) * 3];
    if (pixel[0] < pixel[2] + 70) continue;
    rows.top = std::min(rows.top, at / picture.width);
    rows.bottom = std::max(rows.bottom, at / picture.width);
    ++rows.pixels;
  }
  return rows;
}

Picture readPng(const std::string& file) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  EXPECT_NE(png_image_begin_read_from_file(&image, file.c_str()), 0) << image.message;
  image.format = PNG_FORMAT_RGB;
  Picture picture{static_cast<int>(image.width), static_cast<int>(image.height), {}};
  picture.rgb.resize(PNG_IMAGE_SIZE(image));
  EXPECT_NE(png_image_finish_read(&image, nullptr, picture.rgb.data(), 0, nullptr), 0);
  return picture;
}

/// The number of pictures that differ, and how long they are shown.
struct Watched {
  WebPAnimInfo info{};
  int frames = 0;
  int endMs = 0;
};

Watched watch(const std::string& file) {
  const std::string content = contentOf(file);
  const WebPData data{reinterpret_cast<const std::uint8_t*>(content.data()), content.size()};
  Watched watched;
  WebPAnimDecoder* const decoder = WebPAnimDecoderNew(&data, nullptr);
  if (decoder == nullptr) return watched;
  WebPAnimDecoderGetInfo(decoder, &watched.info);
  std::uint8_t* pixels = nullptr;
  while (WebPAnimDecoderGetNext(decoder, &pixels, &watched.endMs) != 0) ++watched.frames;
  WebPAnimDecoderDelete(decoder);
  return watched;
}

std::string refusalOf(const RobotSettings& settings) {
  std::shared_ptr<Film> film;
  try {
    static_cast<void>(makeBody(settings, &film));
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST(APicture, ShowsTheBodyWhereItIs) {
  RenderScene scene({}, 480, 320);
  const Rows lying = trunkIn(scene.draw(poseAt(0, kLyingHeight)));
  const Rows standing = trunkIn(scene.draw(poseAt(0, 0.3)));
  EXPECT_GT(lying.pixels, 1000);
  EXPECT_GT(standing.pixels, 1000);
  EXPECT_LT(standing.top, lying.top - 30);
  EXPECT_LT(standing.bottom, lying.bottom - 30) << "something of its colour is below it";
  EXPECT_GT(standing.top, 20) << "its head is cut off";
  EXPECT_LT(lying.bottom, 300);
  // The camera comes along, but not at once.
  const Pose far = poseAt(30, 0.3);
  EXPECT_EQ(trunkIn(scene.draw(far)).pixels, standing.pixels) << "time didn't pass, it was placed";
  Pose farther = poseAt(40, 0.3);
  farther.seconds = 0.001;
  EXPECT_EQ(trunkIn(scene.draw(farther)).pixels, 0);
}

TEST(AFilm, RenewsItsPicture) {
  const Pexal::PBase::VirtualClock clock(Pexal::PBase::VirtualClock::kDefaultStartUs, kWatchdogMs);
  RobotSettings settings;
  settings.body = BodyKind::kPhysics;
  settings.render.file = pathOf("robot.png");
  const std::string beside = settings.render.file + ".part";
  std::ofstream(beside) << "somebody's own";
  std::shared_ptr<Film> film;
  const auto body = makeBody(settings, &film);
  ASSERT_NE(film, nullptr);
  const Picture first = readPng(settings.render.file);
  EXPECT_EQ(first.width, 960);
  EXPECT_EQ(first.height, 640);
  BodyCommand stand;
  stand.powered = true;
  stand.height = 0.3;
  for (int step = 0; step < 1000; ++step) body->step(stand, 0.002);
  CThread::sleep(1500);
  EXPECT_LT(trunkIn(readPng(settings.render.file)).top, trunkIn(first).top - 60);
  const FilmReport report = film->finish();
  EXPECT_EQ(report.error, "");
  EXPECT_EQ(report.pictures, 3U);
  EXPECT_EQ(film->finish().pictures, 3U);
  EXPECT_EQ(contentOf(beside), "somebody's own");
  for (const auto& entry : std::filesystem::directory_iterator(testing::TempDir())) {
    EXPECT_FALSE(entry.path().filename().string().starts_with("robot.png.part-")) << entry;
  }
}

TEST(AFilm, PausesWhileNothingMovesAndEndsWhenItIsFull) {
  const Pexal::PBase::VirtualClock clock(Pexal::PBase::VirtualClock::kDefaultStartUs, kWatchdogMs);
  const std::string file = pathOf("robot.webp");
  Renderer renderer({file, 2}, {});
  Pose pose = poseAt(0, kLyingHeight);
  CThread::sleep(kFrameMs / 2);
  const auto pass = [&](int frames, double way) {
    for (int frame = 0; frame < frames; ++frame) {
      pose.seconds += kFrameMs / 1000.0;
      pose.positions[0] += way;
      renderer.see(pose);
      CThread::sleep(kFrameMs);
    }
  };
  pass(10, 0.05);
  pass(50, 0);
  EXPECT_FALSE(std::filesystem::exists(file));
  pass(10, 0.05);
  EXPECT_TRUE(std::filesystem::exists(file)) << "it is full, or doesn't pause";
  pass(10, 0.05);
  const FilmReport report = renderer.finish();
  EXPECT_EQ(report.error, "");
  EXPECT_EQ(report.pictures, 25U);
  EXPECT_EQ(report.seconds, 2);
  const Watched watched = watch(file);
  EXPECT_EQ(watched.info.canvas_width, 480U);
  EXPECT_EQ(watched.info.canvas_height, 320U);
  EXPECT_EQ(watched.endMs, 2000);
  EXPECT_GE(watched.frames, 20);  // the same picture again takes no frame
}

TEST(AFilm, IsRefusedWhereItCantBeTaken) {
  RobotSettings settings;
  settings.body = BodyKind::kPhysics;
  const auto refusal = [&](const std::string& file) {
    settings.render.file = file;
    return refusalOf(settings);
  };
  EXPECT_THAT(refusal(pathOf("robot.gif")), testing::HasSubstr(".webp"));
  const std::string nowhere = pathOf("nowhere/robot.png");
  EXPECT_THAT(refusal(nowhere),
              testing::AllOf(testing::HasSubstr(nowhere), testing::HasSubstr("No such")));
  std::filesystem::create_directory(pathOf("directory.png"));
  EXPECT_THAT(refusal(pathOf("directory.png")), testing::HasSubstr("directory"));
  const std::string file = pathOf("one.webp");
  settings.render.seconds = std::nan("");
  EXPECT_THAT(refusal(file), testing::HasSubstr("600"));
  settings.render.seconds = 1;
  {
    const Renderer other({pathOf("other.webp"), 1}, {});
    EXPECT_THAT(refusal(file), testing::HasSubstr("one robot"));
  }
  EXPECT_EQ(refusal(file), "") << "the other has ended";
  settings.body = BodyKind::kKinematic;
  EXPECT_THAT(refusal(file), testing::HasSubstr("--body physics"));
}

TEST(APhysicsLibrary, WarnsInTheLogAtMostOnceASecond) {
  const Pexal::PBase::VirtualClock clock(Pexal::PBase::VirtualClock::kDefaultStartUs, kWatchdogMs);
  int warnings = 0;
  const auto sink =
      Pexal::ILogger::instance()->addSink([&](std::uint32_t level, const char* text, int) {
        if (level == 3 && std::string(text).find("value in QPOS") != std::string::npos) ++warnings;
      });
  World world({});
  TruePose nowhere;
  nowhere.position = {0, 0, 1e12};
  for (const int expected : {1, 1, 2}) {
    world.place(nowhere, {});
    world.step({}, false);
    EXPECT_EQ(warnings, expected);
    CThread::sleep(600);
  }
  Pexal::ILogger::instance()->removeSink(sink);
  EXPECT_FALSE(std::filesystem::exists("MUJOCO_LOG.TXT"));
}

TEST(TheProgram, EndsWhereTheLibraryCantDraw) {
  const std::string file = pathOf("never.png");
  sdk_test::Process robot({"/usr/bin/env", "MESA_EXTENSION_OVERRIDE=-GL_ARB_framebuffer_object",
                           VIRTUAL_ROBOT, "--body", "physics", "--render", file});
  EXPECT_EQ(robot.finish(20'000), 1) << robot.output();
  EXPECT_TRUE(robot.says("ARB_framebuffer_object", 0)) << robot.output();
  EXPECT_EQ(robot.output().find("Enter"), std::string::npos);
}

TEST(TheProgram, HasItsFilmWhenItIsAskedToEnd) {
  const std::string file = pathOf("program.webp");
  sdk_test::Process robot({VIRTUAL_ROBOT, "--body", "physics", "--render", file});
  ASSERT_TRUE(robot.says("ready: ", 20'000)) << robot.output();
  robot.signal(SIGTERM);
  EXPECT_EQ(robot.finish(20'000), 0);
  EXPECT_TRUE(robot.says(file + ": ", 0)) << robot.output();
  EXPECT_EQ(watch(file).info.canvas_width, 480U);
  const auto refuses = [](std::vector<std::string> command, const char* reason) {
    command.insert(command.begin(), VIRTUAL_ROBOT);
    sdk_test::Process program(command);
    EXPECT_EQ(program.finish(20'000), 2);
    EXPECT_TRUE(program.says(reason, 0)) << program.output();
    EXPECT_EQ(program.output().find("ready"), std::string::npos);
  };
  refuses({"--body", "physics", "--render", "robot.jpg"}, "--render: takes a file");
  EXPECT_EQ(pictureKindOf("ROBOT.PNG"), PictureKind::kStill);
  refuses({"--body", "kinematic", "--render", file}, "is for --body physics");
  refuses({"--render-seconds", "5"}, "--render");
  refuses({"--body", "physics", "--render", ""}, "names no file");
  refuses({"--body", "physics", "--render", "robot.png", "--render-seconds", "5"},
          "is for an animation");
  refuses({"--render", file, "tell", "list"}, "doesn't go with tell");
}

}  // namespace
}  // namespace orvane::robot
