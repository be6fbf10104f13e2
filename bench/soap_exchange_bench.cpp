// The CPU cost of one service exchange without the network: writing a Check
// envelope, and reading a CheckResponse whose CheckResult carries all 18 fields.
#include <benchmark/benchmark.h>

#include <string>

#include "soap/kora.h"
#include "messages/kora_operations.h"
#include "soap/soap_envelope.h"
#include "soap/soap_reply.h"

namespace kora {
namespace {

KORA_Check fullCheck() {
    KORA_Check check;
    for (const FieldSpec& field : check.fields()) {
        if (field.declaredType == "NSNumber") {
            field.store(check, 3.0);
        } else {
            field.store(check, "value of " + std::string(field.elementName) + " & <more>");
        }
    }
    return check;
}

std::string fullCheckResponse() {
    std::string fields;
    for (const FieldSpec& field : KORA_cUpdate::fieldTable()) {
        const std::string name(field.elementName);
        const std::string value =
            field.declaredType == "NSNumber" ? "3" : "value of " + name + " &amp; more";
        fields += "<" + name + ">" + value + "</" + name + ">";
    }
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>"
           "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
           "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
           "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\"><soap:Body>"
           "<CheckResponse xmlns=\"http://kora.olvara.com/ns/KORA\"><CheckResult>" +
           fields + "</CheckResult></CheckResponse></soap:Body></soap:Envelope>";
}

std::shared_ptr<const KoraRecord> readCheckResponse(xmlNodePtr element) {
    return std::make_shared<KORA_CheckResponse>(KORA_CheckResponse::deserializeNode(element));
}

std::string writeEnvelope(const KORA_Check& check) {
    return KORASoap12Binding_envelope::sharedInstance().serializedFormUsingHeaderElements(
        {}, {{"Check", &check}});
}

SoapReply readReply(const std::string& reply) {
    return readSoapReply(reply, CheckOperation::kResponseElement, &readCheckResponse);
}

void WriteCheckEnvelope(benchmark::State& state) {
    const KORA_Check check = fullCheck();
    for (auto _ : state) benchmark::DoNotOptimize(writeEnvelope(check));
}
BENCHMARK(WriteCheckEnvelope)->Unit(benchmark::kMicrosecond);

void ReadCheckResponse(benchmark::State& state) {
    KORA::initialize();
    const std::string reply = fullCheckResponse();
    for (auto _ : state) benchmark::DoNotOptimize(readReply(reply));
}
BENCHMARK(ReadCheckResponse)->Unit(benchmark::kMicrosecond);

// One exchange's worth of XML work: the request written, the reply read.
void CheckExchangeWithoutNetwork(benchmark::State& state) {
    KORA::initialize();
    const KORA_Check check = fullCheck();
    const std::string reply = fullCheckResponse();
    for (auto _ : state) {
        benchmark::DoNotOptimize(writeEnvelope(check));
        const SoapReply parsed = readReply(reply);
        if (!parsed.bodyParts || parsed.bodyParts->size() != 1) state.SkipWithError("bad reply");
    }
}
BENCHMARK(CheckExchangeWithoutNetwork)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace kora

BENCHMARK_MAIN();
