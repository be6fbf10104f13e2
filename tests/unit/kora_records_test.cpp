#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <string>
#include <tuple>
#include <vector>

#include "codecs/xml_resources.h"
#include "messages/kora_messages.h"
#include "messages/kora_type_registry.h"
#include "soap/kora.h"
#include "soap/soap_envelope.h"

namespace kora {
namespace {

XmlDocument parse(const std::string& xml) {
    return XmlDocument(
        xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr, 0));
}

KORA_CheckResponse readCheckResponse(const std::string& xml) {
    const XmlDocument doc = parse(xml);
    EXPECT_TRUE(doc) << xml;
    return KORA_CheckResponse::deserializeNode(doc ? xmlDocGetRootElement(doc.get()) : nullptr);
}

// A CheckResponse whose CheckResult carries `attributes` and `content`.
std::string checkResponseXml(const std::string& attributes, const std::string& content) {
    return "<r:CheckResponse xmlns:r='http://kora.olvara.com/ns/KORA' xmlns:other='urn:other'"
           " xmlns:tns='http://kora.olvara.com/ns/KORA' "
           "xmlns:xsd='http://www.w3.org/2001/XMLSchema'"
           " xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance'><r:CheckResult " +
           attributes + ">" + content + "</r:CheckResult></r:CheckResponse>";
}

class KoraRecords : public testing::Test {
  protected:
    void SetUp() override { KORA::initialize(); }
    XmlDocument doc_{xmlNewDoc(BAD_CAST "1.0")};
};

// Which fields are written, in which order, shows in the envelope tests.
TEST_F(KoraRecords, WriteTheGivenPrefixOnTheRecordAndKoraOnItsFields) {
    KORA_cUpdate update;
    update.setSize_("12");
    xmlNodePtr node = update.xmlNodeForDoc(doc_.get(), "CheckResult", std::string("p"));
    EXPECT_STREQ(textOf(node->name), "p:CheckResult");
    ASSERT_EQ(xmlChildElementCount(node), 1u);
    EXPECT_STREQ(textOf(node->children->name), "KORA:Size");
    xmlFreeNode(node);
}

TEST_F(KoraRecords, ACheckResponseWithEveryFieldReadsBackAsWritten) {
    KORA_cUpdate update;
    for (const FieldSpec& field : update.fields()) {
        if (field.declaredType == "NSString") {
            field.store(update, std::string("value of ") + std::string(field.elementName));
        }
    }
    update.setUpdateOrder(7);
    KORA_CheckResponse response;
    response.setCheckResult(update);

    // Read back from a whole envelope, where the "KORA" prefix is declared.
    const XmlDocument doc =
        parse(KORASoap12Binding_envelope::sharedInstance().serializedFormUsingHeaderElements(
            {}, {{"CheckResponse", &response}}));
    xmlNodePtr body = xmlFirstElementChild(xmlDocGetRootElement(doc.get()));
    EXPECT_EQ(KORA_CheckResponse::deserializeNode(xmlFirstElementChild(body)), response);
}

TEST_F(KoraRecords, ReadByLocalNameWithoutPrefixesAndTheLaterOfTwoEqualElementsWins) {
    const auto response = readCheckResponse(
        "<CheckResponse xmlns='http://kora.olvara.com/ns/KORA'"
        " xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance'><CheckResult>"
        "<UpdateID>u-1</UpdateID><Size>99</Size><Extra>x</Extra><Name>a</Name><Name>b</Name>"
        "<Hash>h</Hash><Hash/><UpdateOrder/><UpdateOrder xsi:type='NSNumber'>4</UpdateOrder>"
        "</CheckResult></CheckResponse>");
    ASSERT_TRUE(response.CheckResult());
    EXPECT_EQ(response.CheckResult()->UpdateID(), "u-1");
    EXPECT_EQ(response.CheckResult()->Size_(), "99");
    EXPECT_EQ(response.CheckResult()->Name(), "b");
    EXPECT_FALSE(response.CheckResult()->Hash());
    EXPECT_EQ(response.CheckResult()->UpdateOrder(), 4);
}

TEST_F(KoraRecords, TypeAttributesChooseTheReaderThroughTheNamespaceTable) {
    // The type attributes of CheckResult and of its UpdateID, and what is read.
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"", "", "u"},
        {"xsi:type='tns:cUpdate'", "", "u"},
        {"xsi:type='r:cUpdate'", "", "u"},
        {"xsi:type='tns:cUpdate:ignored'", "", "u"},
        {"xsi:type='KORA_cUpdate'", "", "u"},
        {"xsi:type='xsd:string'", "", "no CheckResult"},
        {"xsi:type='tns:Check'", "", "no CheckResult"},  // not a record CheckResult can hold
        {"xsi:type='other:cUpdate'", "", "no CheckResult"},
        {"xsi:type='nowhere:cUpdate'", "", "no CheckResult"},
        {"xsi:type='cUpdate'", "", "no CheckResult"},
        {"xmlns='http://kora.olvara.com/ns/KORA' xsi:type=':cUpdate'", "", "no CheckResult"},
        {"", "xsi:type='NSString'", "u"},
        {"", "xsi:type='xsd:string'", "no UpdateID"},  // a type no field holds
        {"", "xsi:type='NSNumber'", "no UpdateID"},
    };
    for (const auto& [resultType, fieldType, expected] : rows) {
        const auto response = readCheckResponse(checkResponseXml(
            resultType, std::string("<r:UpdateID ") + fieldType + ">u</r:UpdateID>"));
        EXPECT_EQ(response.CheckResult()
                      ? response.CheckResult()->UpdateID().value_or("no UpdateID")
                      : "no CheckResult",
                  expected)
            << resultType << fieldType;
    }
}

TEST_F(KoraRecords, AnEmptyOrNilCheckResultIsAnUpdateWithoutFields) {
    for (const char* attribute : {"", "xsi:nil='true'"}) {
        const auto response = readCheckResponse(checkResponseXml(attribute, ""));
        ASSERT_TRUE(response.CheckResult()) << attribute;
        EXPECT_EQ(*response.CheckResult(), KORA_cUpdate());
    }
    EXPECT_FALSE(readCheckResponse("<CheckResponse/>").CheckResult());
}

// Each record's xsi:type text names it in the type registry, which reads an
// element as that record type: a missing or crossed row would not parse.
TEST_F(KoraRecords, EachXsiTypeTextReadsItsOwnRecordType) {
    xmlNodePtr element = xmlNewDocNode(doc_.get(), nullptr, BAD_CAST "Any", nullptr);
    xmlDocSetRootElement(doc_.get(), element);
    const auto readsAsItself = [element]<typename Record>(Record) {
        const TypeReader reader = typeReaderNamed(Record::kXsiType);
        ASSERT_NE(reader, nullptr) << Record::kXsiType;
        const MessageValue value = reader(element);
        const auto* record = std::get_if<std::shared_ptr<const KoraRecord>>(&value);
        ASSERT_NE(record, nullptr) << Record::kXsiType;
        EXPECT_NE(dynamic_cast<const Record*>(record->get()), nullptr) << Record::kXsiType;
        EXPECT_EQ((*record)->recordTypeName(), Record::kXsiType);
    };
    std::apply(
        [&](auto... records) { (readsAsItself(records), ...); },
        std::tuple<KORA_Check, KORA_CheckResponse, KORA_cUpdate, KORA_cError, KORA_DownloadError,
                   KORA_DownloadErrorResponse, KORA_InstallError, KORA_InstallErrorResponse,
                   KORA_DownloadComplete, KORA_DownloadCompleteResponse, KORA_InstallComplete,
                   KORA_InstallCompleteResponse, KORA_DownloadCancel, KORA_DownloadCancelResponse,
                   KORA_InstallCancel, KORA_InstallCancelResponse, KORA_Uninstall,
                   KORA_UninstallResponse>());
}

}  // namespace
}  // namespace kora
