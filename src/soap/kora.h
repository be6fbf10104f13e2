#pragma once

#include <memory>
#include <string>

namespace kora {

class KORASoapBinding;
class KORASoap12Binding;

// The update service as a whole: its one-time set-up and the factories of
// bindings. Without an address a binding is for the built-in endpoint
// (kDefaultKoraServiceAddress); the daemon passes the address it was started
// with.
class KORA {
  public:
    // Fills the namespace table; runs once, before the first binding.
    static void initialize();

    static std::shared_ptr<kora::KORASoapBinding> KORASoapBinding();
    static std::shared_ptr<kora::KORASoapBinding> KORASoapBinding(const std::string& address);
    static std::shared_ptr<kora::KORASoap12Binding> KORASoap12Binding();
    static std::shared_ptr<kora::KORASoap12Binding> KORASoap12Binding(const std::string& address);
};

}  // namespace kora
