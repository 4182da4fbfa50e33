#include "pdbus/DomainMember.h"

#include "DomainRegistry.h"

namespace Pexal::PDBus {

DomainMember::DomainMember(std::uint32_t domain, const std::optional<std::string>& profile)
    : domain_(domain), participant_(DomainRegistry::instance().join(domain, profile)) {}

DomainMember::~DomainMember() {
  participant_.close();
  DomainRegistry::instance().leave(domain_, isLeaving_);
}

void DomainMember::announceEnd() noexcept {
  if (isLeaving_) return;
  isLeaving_ = true;
  DomainRegistry::instance().announceLeave(domain_);
}

}  // namespace Pexal::PDBus
