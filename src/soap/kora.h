#pragma once

#include <memory>

namespace kora {

class KORASoapBinding;
class KORASoap12Binding;

// The update service as a whole: its one-time set-up and the factories of
// bindings for the configured endpoint (KoraServiceAddress()).
class KORA {
  public:
    // Fills the namespace table; runs once, before the first binding.
    static void initialize();

    static std::shared_ptr<kora::KORASoapBinding> KORASoapBinding();
    static std::shared_ptr<kora::KORASoap12Binding> KORASoap12Binding();
};

}  // namespace kora
