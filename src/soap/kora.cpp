#include "soap/kora.h"

#include <cstdlib>
#include <mutex>

#include "soap/service_settings.h"
#include "soap/soap_binding.h"
#include "codecs/us_globals.h"

namespace kora {

std::string KoraServiceAddress() {
    const char* override = std::getenv("KORAD_SERVICE_ADDRESS");
    return override != nullptr && *override != '\0' ? override : kDefaultKoraServiceAddress;
}

void KORA::initialize() {
    registerStandardNamespaces();
}

std::shared_ptr<kora::KORASoapBinding> KORA::KORASoapBinding() {
    initialize();
    return std::make_shared<kora::KORASoapBinding>(KoraServiceAddress());
}

std::shared_ptr<kora::KORASoap12Binding> KORA::KORASoap12Binding() {
    initialize();
    return std::make_shared<kora::KORASoap12Binding>(KoraServiceAddress());
}

}  // namespace kora
