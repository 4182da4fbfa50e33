#include "physics/RenderFile.h"

#include <fcntl.h>
#include <png.h>
#include <sys/stat.h>
#include <unistd.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace orvane::robot {
namespace {

constexpr float kQuality = 70;  // of 100
constexpr int kEffort = 3;      // of 6; more takes longer

[[noreturn]] void fail(const std::string& file, int number) {
  throw std::runtime_error("can't write " + file + ": " + std::strerror(number));
}

std::string besideOf(const std::string& file) {
  return file + ".part";
}

int openBeside(const std::string& file) {
  const int handle =
      ::open(besideOf(file).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (handle < 0) fail(file, errno);
  return handle;
}

/// 0, or what went wrong.
int writeAll(int handle, const std::vector<std::uint8_t>& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t count = ::write(handle, bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno != EINTR) return errno;
    if (count > 0) done += static_cast<std::size_t>(count);
  }
  return 0;
}

}  // namespace

std::optional<PictureKind> pictureKindOf(const std::string& file) {
  if (file.ends_with(".png")) return PictureKind::kStill;
  if (file.ends_with(".webp")) return PictureKind::kAnimation;
  return std::nullopt;
}

void expectWritable(const std::string& file) {
  struct stat there {};
  if (::stat(file.c_str(), &there) == 0 && S_ISDIR(there.st_mode)) fail(file, EISDIR);
  ::close(openBeside(file));
  ::unlink(besideOf(file).c_str());
}

void replaceFile(const std::string& file, const std::vector<std::uint8_t>& bytes) {
  const int handle = openBeside(file);
  int trouble = writeAll(handle, bytes);
  if (::close(handle) != 0 && trouble == 0) trouble = errno;
  const std::string beside = besideOf(file);
  if (trouble == 0 && std::rename(beside.c_str(), file.c_str()) != 0) trouble = errno;
  if (trouble == 0) return;
  ::unlink(beside.c_str());
  fail(file, trouble);
}

std::vector<std::uint8_t> toPng(const Picture& picture) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(picture.width);
  image.height = static_cast<png_uint_32>(picture.height);
  image.format = PNG_FORMAT_RGB;
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
  std::vector<std::uint8_t> bytes(size);
  if (png_image_write_to_memory(&image, bytes.data(), &size, 0, picture.rgb.data(), 0, nullptr) ==
      0) {
    throw std::runtime_error(std::string("no PNG: ") + image.message);
  }
  bytes.resize(size);
  return bytes;
}

struct Animation::Encoder {
  Encoder(int width, int height) {
    WebPAnimEncoderOptions options;
    bool fine = WebPAnimEncoderOptionsInit(&options) != 0 &&
                WebPConfigPreset(&config, WEBP_PRESET_PICTURE, kQuality) != 0 &&
                WebPPictureInit(&frame) != 0;
    config.method = kEffort;
    frame.width = width;
    frame.height = height;
    frame.use_argb = 1;
    if (fine) encoder = WebPAnimEncoderNew(width, height, &options);
    if (encoder == nullptr) throw std::runtime_error("no animation: the WebP library refuses");
  }
  ~Encoder() {
    WebPPictureFree(&frame);
    WebPAnimEncoderDelete(encoder);
  }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  void expect(int done) const {
    if (done != 0) return;
    throw std::runtime_error(std::string("no animation: ") + WebPAnimEncoderGetError(encoder));
  }

  WebPConfig config{};
  WebPPicture frame{};
  WebPAnimEncoder* encoder = nullptr;
};

Animation::Animation(int width, int height) : encoder_(std::make_unique<Encoder>(width, height)) {}

Animation::~Animation() = default;

void Animation::add(const Picture& picture, int atMs) {
  WebPPicture& frame = encoder_->frame;
  if (picture.width != frame.width || picture.height != frame.height ||
      WebPPictureImportRGB(&frame, picture.rgb.data(), picture.width * 3) == 0) {
    throw std::runtime_error("no animation: a picture of another size, or too little memory");
  }
  encoder_->expect(WebPAnimEncoderAdd(encoder_->encoder, &frame, atMs, &encoder_->config));
}

std::vector<std::uint8_t> Animation::finish(int endMs) {
  encoder_->expect(WebPAnimEncoderAdd(encoder_->encoder, nullptr, endMs, nullptr));
  WebPData data;
  WebPDataInit(&data);
  encoder_->expect(WebPAnimEncoderAssemble(encoder_->encoder, &data));
  std::vector<std::uint8_t> bytes(data.bytes, data.bytes + data.size);
  WebPDataClear(&data);
  return bytes;
}

}  // namespace orvane::robot
