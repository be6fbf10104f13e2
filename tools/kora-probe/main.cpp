// kora-probe: sends one operation of the update service with fields from the
// command line and prints the reply's body parts or the error that ended the
// exchange. For people who run an update service and want to see what the
// daemon would send and get back.
#include <getopt.h>
#include <strings.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "soap/kora.h"
#include "soap/service_settings.h"
#include "soap/soap_binding.h"
#include "soap/soap_binding_operation.h"

namespace kora {
namespace {

constexpr int kExitRecords = 0;
constexpr int kExitFault = 1;
constexpr int kExitError = 2;
constexpr int kExitUsage = 64;

constexpr const char* kHelp = R"HELP(NAME
    kora-probe - send one operation to a Kora update service and show the reply

SYNOPSIS
    kora-probe [--address URL] [--field NAME=VALUE]... [--soap11] [--timeout SECONDS]
               [--user NAME --password PASSWORD] [--no-record] [--trace] OPERATION
    kora-probe --help

DESCRIPTION
    kora-probe builds the request record of OPERATION, sets the fields given with
    --field and leaves every other field absent (no element at all), wraps it in the
    SOAP envelope that the Korad daemon writes, and posts it the way the daemon does:
    same headers, same SOAPAction, same reply handling. It then prints what the
    reply's SOAP Body held, or the error that ended the exchange.

OPERATIONS
    Check, DownloadError, InstallError, DownloadComplete, InstallComplete,
    DownloadCancel, InstallCancel, Uninstall (case does not matter).

OPTIONS
    --address URL
        The service endpoint. Default: the value of KORAD_SERVICE_ADDRESS when set,
        otherwise the address built into this program:
        %s

    --field NAME=VALUE
        Sets the request field whose element name is NAME (for example
        InstallationID, Version or ServicePack). VALUE may be empty, which sends an
        empty element. Number fields (ServicePack) take a decimal number. Repeat the
        option for more fields; a later one for the same NAME wins. An unknown NAME
        is an error that lists the fields of the operation.

    --soap11
        Use the SOAP 1.1 binding (KORASoapBinding). The bytes on the wire are the
        same; errors are then reported in the "KORASoapBindingResponse..." domains
        instead of "KORASoap12BindingResponse...".

    --timeout SECONDS
        Inactivity time-out of the exchange (default 10): the exchange fails
        when nothing arrives for this long. Whatever this is set to, an exchange
        fails as timed out 60 seconds after it started, however steadily the
        reply trickles in.

    --user NAME, --password PASSWORD
        Credentials offered when the server asks for them. A second challenge ends
        the call with the "Connection Authentication" error.

    --no-record
        Send no request record: the envelope then has no Body at all.

    --trace
        Write the XML traces of the exchange (request headers and body, reply
        status, headers and body, or the error) to standard error.

    --help
        Show this text.

OUTPUT
    On standard output, one block per recognised Body child, in document order:
    a record with its type name and every field ("(absent)" for a field the reply
    did not carry, nested records indented), or a SOAP fault with faultcode,
    faultstring, faultactor, detail and simpleFaultString. A reply without a Body
    prints "no body parts". A failed exchange prints
        error: DOMAIN code CODE: DESCRIPTION

EXIT STATUS
    0   the reply's body parts came back, none of them a fault
    1   a SOAP fault came back among the body parts
    2   the exchange failed; the error was printed
    64  the command line was not understood

ENVIRONMENT
    KORAD_SERVICE_ADDRESS   default for --address

EXAMPLES
    kora-probe --address http://127.0.0.1:8080/telso/cm/webservices/kora2.asmx \
        --field InstallationID=00000000-0000-0000-0000-000000000000 \
        --field Version=1.0 --field ServicePack=3 Check

    kora-probe --trace --field InstallationID=abc --field ProductID=def Uninstall
)HELP";

// The tool's own development default: KORAD_SERVICE_ADDRESS when set, as the
// daemon does.
std::string defaultAddress() {
    const char* address = std::getenv("KORAD_SERVICE_ADDRESS");
    return address != nullptr && *address != '\0' ? address : kDefaultKoraServiceAddress;
}

struct Options {
    std::string address = defaultAddress();
    std::vector<std::pair<std::string, std::string>> fields;
    bool soap11 = false;
    double timeout = kKoraDefaultTimeoutSeconds;
    std::optional<std::string> user;
    std::optional<std::string> password;
    bool noRecord = false;
    bool trace = false;
    std::string operation;
};

void usageError(const std::string& message) {
    std::fprintf(stderr, "kora-probe: %s\nTry 'kora-probe --help'.\n", message.c_str());
}

std::optional<double> numberArgument(const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(value)) return std::nullopt;
    return value;
}

// The request with the --field values; an error text for an unknown or
// malformed field.
std::optional<std::string> setFields(KoraRecord& request, const Options& options) {
    for (const auto& [name, value] : options.fields) {
        const FieldSpec* field = nullptr;
        for (const FieldSpec& candidate : request.fields()) {
            if (candidate.elementName == name) field = &candidate;
        }
        if (field == nullptr) {
            std::string known;
            for (const FieldSpec& candidate : request.fields()) {
                known += " " + std::string(candidate.elementName);
            }
            return "unknown field '" + name + "' for " + options.operation +
                   "; its fields:" + known;
        }
        if (field->declaredType == "NSNumber") {
            const std::optional<double> number = numberArgument(value);
            if (!number) return "field '" + name + "' takes a number, not '" + value + "'";
            field->store(request, *number);
        } else {
            field->store(request, value);
        }
    }
    return std::nullopt;
}

std::string numberText(double value) {
    if (std::trunc(value) == value && std::fabs(value) < 1e15) {
        return std::to_string(static_cast<long long>(value));
    }
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%.17g", value);
    return buffer;
}

std::string quoted(const std::optional<std::string>& text) {
    return text ? "\"" + *text + "\"" : "(absent)";
}

void printRecord(const KoraRecord& record, int indent) {
    std::printf("%s\n", std::string(record.recordTypeName()).c_str());
    const std::string pad(static_cast<size_t>(indent + 2), ' ');
    for (const FieldView& field : record.fieldValues()) {
        const std::string name(field.elementName);
        if (const auto* text = std::get_if<const std::string*>(&field.value)) {
            std::printf("%s%s: %s\n", pad.c_str(), name.c_str(), quoted(**text).c_str());
        } else if (const auto* number = std::get_if<double>(&field.value)) {
            std::printf("%s%s: %s\n", pad.c_str(), name.c_str(), numberText(*number).c_str());
        } else if (const auto* nested = std::get_if<const KoraRecord*>(&field.value)) {
            std::printf("%s%s: ", pad.c_str(), name.c_str());
            printRecord(**nested, indent + 2);
        } else {
            std::printf("%s%s: (absent)\n", pad.c_str(), name.c_str());
        }
    }
}

void printFault(const SOAPFault& fault) {
    std::printf(
        "SOAPFault\n  faultcode: %s\n  faultstring: %s\n  faultactor: %s\n"
        "  detail: %s\n  simpleFaultString: %s\n",
        quoted(fault.faultcode()).c_str(), quoted(fault.faultstring()).c_str(),
        quoted(fault.faultactor()).c_str(), quoted(fault.detail()).c_str(),
        quoted(fault.simpleFaultString()).c_str());
}

int printResponse(const KORASoapBindingResponse& response) {
    if (response.error()) {
        const ServiceError& error = *response.error();
        std::printf("error: %s code %ld: %s\n", error.domain.c_str(), error.code,
                    error.description.c_str());
        return kExitError;
    }
    if (!response.bodyParts()) {
        std::printf("no body parts\n");
        return kExitRecords;
    }
    int status = kExitRecords;
    for (const BodyPart& part : *response.bodyParts()) {
        if (const auto* fault = bodyPartAs<SOAPFault>(part)) {
            printFault(*fault);
            status = kExitFault;
        } else {
            printRecord(*std::get<std::shared_ptr<const KoraRecord>>(part), 0);
        }
    }
    return status;
}

using Call = std::function<int(const std::shared_ptr<SoapBinding>&, const Options&)>;

template <typename Operation>
int call(const std::shared_ptr<SoapBinding>& binding, const Options& options) {
    std::optional<typename Operation::Request> request;
    if (!options.noRecord) {
        request.emplace();
        if (const auto problem = setFields(*request, options)) {
            usageError(*problem);
            return kExitUsage;
        }
    }
    const auto operation =
        std::make_shared<KoraBindingOperation<Operation>>(binding, binding.get(), request);
    return printResponse(*binding->performSynchronousOperation(operation));
}

std::optional<Call> callNamed(const std::string& name) {
    const std::pair<const char*, Call> calls[] = {
        {"Check", call<CheckOperation>},
        {"DownloadError", call<DownloadErrorOperation>},
        {"InstallError", call<InstallErrorOperation>},
        {"DownloadComplete", call<DownloadCompleteOperation>},
        {"InstallComplete", call<InstallCompleteOperation>},
        {"DownloadCancel", call<DownloadCancelOperation>},
        {"InstallCancel", call<InstallCancelOperation>},
        {"Uninstall", call<UninstallOperation>},
    };
    for (const auto& [known, function] : calls) {
        if (strcasecmp(known, name.c_str()) == 0) return function;
    }
    return std::nullopt;
}

// The options, or the exit status when the command line already decided it.
std::variant<Options, int> parseArguments(int argc, char** argv) {
    enum { kAddress = 1, kField, kSoap11, kTimeout, kUser, kPassword, kNoRecord, kTrace, kHelpOpt };
    const option longOptions[] = {
        {"address", required_argument, nullptr, kAddress},
        {"field", required_argument, nullptr, kField},
        {"soap11", no_argument, nullptr, kSoap11},
        {"timeout", required_argument, nullptr, kTimeout},
        {"user", required_argument, nullptr, kUser},
        {"password", required_argument, nullptr, kPassword},
        {"no-record", no_argument, nullptr, kNoRecord},
        {"trace", no_argument, nullptr, kTrace},
        {"help", no_argument, nullptr, kHelpOpt},
        {nullptr, 0, nullptr, 0},
    };
    Options options;
    opterr = 0;
    int option = 0;
    while ((option = getopt_long(argc, argv, "", longOptions, nullptr)) != -1) {
        const std::string argument = optarg ? optarg : "";
        switch (option) {
            case kAddress:
                options.address = argument;
                break;
            case kField: {
                const std::size_t equals = argument.find('=');
                if (equals == std::string::npos || equals == 0) {
                    usageError("--field takes NAME=VALUE, not '" + argument + "'");
                    return kExitUsage;
                }
                options.fields.emplace_back(argument.substr(0, equals),
                                            argument.substr(equals + 1));
                break;
            }
            case kSoap11:
                options.soap11 = true;
                break;
            case kTimeout: {
                const std::optional<double> seconds = numberArgument(argument);
                if (!seconds || *seconds <= 0) {
                    usageError("--timeout takes a positive number of seconds");
                    return kExitUsage;
                }
                options.timeout = *seconds;
                break;
            }
            case kUser:
                options.user = argument;
                break;
            case kPassword:
                options.password = argument;
                break;
            case kNoRecord:
                options.noRecord = true;
                break;
            case kTrace:
                options.trace = true;
                break;
            case kHelpOpt:
                std::printf(kHelp, kDefaultKoraServiceAddress);
                return kExitRecords;
            default:
                usageError(std::string("unknown option or missing value: ") + argv[optind - 1]);
                return kExitUsage;
        }
    }
    if (optind != argc - 1) {
        usageError("name exactly one OPERATION");
        return kExitUsage;
    }
    options.operation = argv[optind];
    return options;
}

std::shared_ptr<SoapBinding> makeBinding(const Options& options) {
    std::shared_ptr<SoapBinding> binding;
    if (options.soap11) {
        binding = std::make_shared<KORASoapBinding>(options.address);
    } else {
        binding = std::make_shared<KORASoap12Binding>(options.address);
    }
    binding->setDefaultTimeout(options.timeout);
    binding->setAuthUsername(options.user);
    binding->setAuthPassword(options.password);
    binding->setLogXMLInOut(options.trace);
    return binding;
}

int run(int argc, char** argv) {
    auto parsed = parseArguments(argc, argv);
    if (const int* status = std::get_if<int>(&parsed)) return *status;
    const Options& options = std::get<Options>(parsed);
    const std::optional<Call> call = callNamed(options.operation);
    if (!call) {
        usageError("unknown operation '" + options.operation + "'");
        return kExitUsage;
    }
    return (*call)(makeBinding(options), options);
}

}  // namespace
}  // namespace kora

int main(int argc, char** argv) {
    try {
        return kora::run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kora-probe: %s\n", error.what());
        return kora::kExitError;
    }
}
