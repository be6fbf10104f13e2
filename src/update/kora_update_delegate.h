#pragma once

#include <memory>

namespace kora {

class KoraUpdate;

// Receives the outcome of an update's download and installation. An update
// does not own its delegate; it calls it only when one is set.
class KoraUpdateDelegate {
  public:
    virtual ~KoraUpdateDelegate() = default;

    // The download failed; the update has already cleared its download state.
    virtual void downloadErrorOn(const std::shared_ptr<KoraUpdate>& update) = 0;
    // The archive is complete; called before the update sets its own flag.
    virtual void downloadDidFinishFor(const std::shared_ptr<KoraUpdate>& update) = 0;
    virtual void installationErrorOn(const std::shared_ptr<KoraUpdate>& update) = 0;
    virtual void installationDidFinishFor(const std::shared_ptr<KoraUpdate>& update) = 0;
};

}  // namespace kora
