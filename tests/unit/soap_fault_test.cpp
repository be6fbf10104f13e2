#include "codecs/soap_fault.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <memory>

using kora::SOAPFault;

namespace {

using Doc = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;

SOAPFault faultFrom(const std::string& xml) {
    Doc doc(xmlParseMemory(xml.data(), static_cast<int>(xml.size())), xmlFreeDoc);
    EXPECT_TRUE(doc) << xml;
    return SOAPFault::deserializeNode(doc ? xmlDocGetRootElement(doc.get()) : nullptr);
}

TEST(SOAPFault, ReadsSoap11FieldsByLocalNameAndKeepsTheLastOfEach) {
    const SOAPFault fault = faultFrom(
        "<s:Fault xmlns:s='http://schemas.xmlsoap.org/soap/envelope/'>"
        "<faultcode>first</faultcode><faultcode>s:Server</faultcode><!-- note -->"
        "<faultstring>a &amp;lt; b</faultstring><x:faultactor xmlns:x='urn:x'>actor</x:faultactor>"
        "<detail><inner>ignored</inner></detail><other>x</other></s:Fault>");
    EXPECT_EQ(fault.faultcode(), "s:Server");
    EXPECT_EQ(fault.faultstring(), "a < b");
    EXPECT_EQ(fault.faultactor(), "actor");
    EXPECT_EQ(fault.detail(), std::nullopt);  // only direct text counts
}

TEST(SOAPFault, ReadsSoap12CodeValueAndTheWholeReasonText) {
    const SOAPFault fault = faultFrom(
        "<env:Fault xmlns:env='http://www.w3.org/2003/05/soap-envelope'>"
        "<env:Code><env:Value>soap:Receiver</env:Value><env:Subcode><env:Value>x</env:Value>"
        "</env:Subcode><env:Value>second</env:Value></env:Code>"
        "<env:Reason><env:Text xml:lang='en'>Bad </env:Text><env:Text>&amp;lt;input</env:Text>"
        "</env:Reason><env:Role>r</env:Role><env:Node>node</env:Node>"
        "<env:Detail>details</env:Detail></env:Fault>");
    EXPECT_EQ(fault.faultcode(), "soap:Receiver");
    EXPECT_EQ(fault.faultstring(), "Bad &lt;input");  // not unescaped a second time
    EXPECT_EQ(fault.faultactor(), "node");
    EXPECT_EQ(fault.detail(), "details");
    const char* emptyReason =
        "<Fault xmlns='http://www.w3.org/2003/05/soap-envelope'><Reason/></Fault>";
    EXPECT_EQ(faultFrom(emptyReason).faultstring(), "");
}

TEST(SOAPFault, LeavesEveryFieldAbsentOutsideTheSoapNamespaces) {
    EXPECT_EQ(faultFrom("<Fault><faultstring>x</faultstring></Fault>"), SOAPFault());
    EXPECT_EQ(faultFrom("<Fault xmlns='urn:x'><faultstring>x</faultstring></Fault>"), SOAPFault());
}

TEST(SOAPFault, ShortensTheFaultStringToTheServiceMessage) {
    const std::pair<std::optional<std::string>, std::optional<std::string>> rows[] = {
        {std::nullopt, std::nullopt},
        {" plain \n", " plain \n"},
        {"a\n  at b", "a\n  at b"},
        {"System.Web.Services.Protocols.SoapException: Server was unable to process request."
         "\n   at Foo.Bar()\n   at Baz()",
         "Server was unable to process request."},
        {"x System.Web.Services.Protocols.SoapException: y", "x y"}};
    for (const auto& [faultstring, expected] : rows) {
        SOAPFault fault;
        fault.setFaultstring(faultstring);
        EXPECT_EQ(fault.simpleFaultString(), expected);
    }
}

}  // namespace
