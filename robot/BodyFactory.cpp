#include "BodyFactory.h"

#include <stdexcept>

#include "body/KinematicBody.h"
#ifdef ORVANE_WITH_PHYSICS
#include "physics/PhysicsBody.h"
#endif
#ifdef ORVANE_WITH_PICTURES
#include "physics/Render.h"
#endif

namespace orvane::robot {

std::unique_ptr<Body> makeBody(const RobotSettings& settings, std::shared_ptr<Film>* film) {
  const bool filmed = film != nullptr && !settings.render.file.empty();
  if (settings.body == BodyKind::kKinematic) {
    if (filmed)
      throw std::runtime_error("only a body with physics can be rendered: --body physics");
    return std::make_unique<KinematicBody>(settings.chargePercent);
  }
#ifdef ORVANE_WITH_PHYSICS
  const Variation variation = Variation::ofSeed(settings.seed);
  auto body = std::make_unique<PhysicsBody>(settings.chargePercent, variation);
  if (!filmed) return body;
#ifdef ORVANE_WITH_PICTURES
  auto renderer = std::make_shared<Renderer>(settings.render, variation);
  *film = renderer;
  return std::make_unique<FilmedBody>(std::move(body), std::move(renderer));
#else
  throw std::runtime_error(
      "this program was built without pictures: install libosmesa6-dev, libpng-dev and libwebp-dev "
      "and build again");
#endif
#else
  throw std::runtime_error(
      "this program was built without a body with physics: install libmujoco-dev and build again");
#endif
}

}  // namespace orvane::robot
