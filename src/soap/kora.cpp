#include "soap/kora.h"

#include "codecs/us_globals.h"
#include "soap/service_settings.h"
#include "soap/soap_binding.h"

namespace kora {

void KORA::initialize() {
    registerStandardNamespaces();
}

std::shared_ptr<kora::KORASoapBinding> KORA::KORASoapBinding() {
    return KORASoapBinding(kDefaultKoraServiceAddress);
}

std::shared_ptr<kora::KORASoapBinding> KORA::KORASoapBinding(const std::string& address) {
    initialize();
    return std::make_shared<kora::KORASoapBinding>(address);
}

std::shared_ptr<kora::KORASoap12Binding> KORA::KORASoap12Binding() {
    return KORASoap12Binding(kDefaultKoraServiceAddress);
}

std::shared_ptr<kora::KORASoap12Binding> KORA::KORASoap12Binding(const std::string& address) {
    initialize();
    return std::make_shared<kora::KORASoap12Binding>(address);
}

}  // namespace kora
