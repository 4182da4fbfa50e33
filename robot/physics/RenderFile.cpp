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
#include <utility>

namespace orvane::robot {
namespace {

constexpr float kQuality = 70;  // of 100
constexpr int kEffort = 3;      // of 6; more takes longer

[[noreturn]] void fail(const std::string& file, int number) {
  throw std::runtime_error("can't write " + file + ": " + std::strerror(number));
}

/// A new file beside another, gone with this unless it took the other's place.
class Beside {
 public:
  /// Throws std::runtime_error with the system's words.
  explicit Beside(const std::string& file) : file_(file) {
    constexpr int kMostNames = 100;  // others may be there from processes that were killed
    const std::string prefix = file + ".part-" + std::to_string(::getpid()) + "-";
    for (int number = 0; handle_ < 0 && number < kMostNames; ++number) {
      name_ = prefix + std::to_string(number);
      handle_ = ::open(name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
      if (handle_ < 0 && errno != EEXIST) break;
    }
    if (handle_ < 0) fail(file_, errno);
  }
  ~Beside() {
    if (handle_ >= 0) ::close(handle_);
    if (!name_.empty()) ::unlink(name_.c_str());
  }
  Beside(const Beside&) = delete;
  Beside& operator=(const Beside&) = delete;

  /// Throws std::runtime_error with the system's words.
  void become(const std::vector<std::uint8_t>& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
      const ssize_t count = ::write(handle_, bytes.data() + done, bytes.size() - done);
      if (count < 0 && errno != EINTR) fail(file_, errno);
      if (count > 0) done += static_cast<std::size_t>(count);
    }
    if (::close(std::exchange(handle_, -1)) != 0) fail(file_, errno);
    if (std::rename(name_.c_str(), file_.c_str()) != 0) fail(file_, errno);
    name_.clear();
  }

 private:
  const std::string& file_;
  std::string name_;  // empty: it took the other's
  int handle_ = -1;
};

}  // namespace

void expectWritable(const std::string& file) {
  struct stat there {};
  if (::stat(file.c_str(), &there) == 0 && S_ISDIR(there.st_mode)) fail(file, EISDIR);
  const Beside beside(file);
}

void replaceFile(const std::string& file, const std::vector<std::uint8_t>& bytes) {
  Beside(file).become(bytes);
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
