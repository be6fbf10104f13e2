#include "soap/soap_envelope.h"

#include <gtest/gtest.h>

#include "messages/kora_messages.h"

namespace kora {
namespace {

constexpr const char* kEnvelopeStart =
    "<?xml version=\"1.0\"?>\n"
    "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
    "xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
    "xmlns:KORA=\"http://kora.olvara.com/ns/KORA\" "
    "xmlns:s1=\"http://microsoft.com/wsdl/types/\" xsl:version=\"1.0\"";

std::string envelopeFor(const KoraRecord* body, const char* name) {
    EnvelopeElements bodyElements;
    if (body != nullptr) bodyElements.emplace_back(name, body);
    return KORASoap12Binding_envelope::sharedInstance().serializedFormUsingHeaderElements(
        {}, bodyElements);
}

TEST(SoapEnvelope, WritesACheckWithItsPresentFieldsInFieldOrder) {
    KORA_Check check;
    check.setVersion("1.2 & <b>");
    check.setInstallationID("inst-1");
    check.setServicePack(3);
    check.setUsername("");
    EXPECT_EQ(envelopeFor(&check, "Check"),
              std::string(kEnvelopeStart) +
                  ">\n"
                  "  <soap:Body>\n"
                  "    <KORA:Check>\n"
                  "      <KORA:InstallationID>inst-1</KORA:InstallationID>\n"
                  "      <KORA:Username/>\n"
                  "      <KORA:ServicePack>3</KORA:ServicePack>\n"
                  "      <KORA:Version>1.2 &amp; &lt;b&gt;</KORA:Version>\n"
                  "    </KORA:Check>\n"
                  "  </soap:Body>\n"
                  "</soap:Envelope>\n");
}

TEST(SoapEnvelope, WritesAnEmptyRecordAsAnEmptyElementAndNoRecordWithoutBody) {
    const KORA_Uninstall empty;
    EXPECT_EQ(envelopeFor(&empty, "Uninstall"), std::string(kEnvelopeStart) +
                                                    ">\n"
                                                    "  <soap:Body>\n"
                                                    "    <KORA:Uninstall/>\n"
                                                    "  </soap:Body>\n"
                                                    "</soap:Envelope>\n");
    EXPECT_EQ(envelopeFor(nullptr, "Uninstall"), std::string(kEnvelopeStart) + "/>\n");
}

}  // namespace
}  // namespace kora
