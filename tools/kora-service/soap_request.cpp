#include "soap_messages.h"

#include <libxml/parser.h>

#include "codecs/service_namespaces.h"
#include "codecs/xml_resources.h"
#include "messages/kora_operations.h"

namespace kora::service {
namespace {

bool named(xmlNodePtr node, const char* name) {
    return xmlStrEqual(node->name, BAD_CAST name) != 0;
}

bool inNamespace(xmlNodePtr node, const char* uri) {
    return node->ns != nullptr && xmlStrEqual(node->ns->href, BAD_CAST uri) != 0;
}

xmlNodePtr firstElement(xmlNodePtr node) {
    for (xmlNodePtr child = node->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE) return child;
    }
    return nullptr;
}

xmlNodePtr childNamed(xmlNodePtr node, const char* name, const char* uri) {
    for (xmlNodePtr child = node->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE && named(child, name) && inNamespace(child, uri)) {
            return child;
        }
    }
    return nullptr;
}

template <typename Operation>
std::unique_ptr<KoraRecord> readRecord(xmlNodePtr element) {
    return std::make_unique<typename Operation::Request>(
        Operation::Request::deserializeNode(element));
}

using RecordReader = std::unique_ptr<KoraRecord> (*)(xmlNodePtr);

RecordReader readerFor(std::string_view operation) {
    static constexpr std::pair<std::string_view, RecordReader> readers[] = {
        {CheckOperation::kName, readRecord<CheckOperation>},
        {DownloadErrorOperation::kName, readRecord<DownloadErrorOperation>},
        {InstallErrorOperation::kName, readRecord<InstallErrorOperation>},
        {DownloadCompleteOperation::kName, readRecord<DownloadCompleteOperation>},
        {InstallCompleteOperation::kName, readRecord<InstallCompleteOperation>},
        {DownloadCancelOperation::kName, readRecord<DownloadCancelOperation>},
        {InstallCancelOperation::kName, readRecord<InstallCancelOperation>},
        {UninstallOperation::kName, readRecord<UninstallOperation>},
    };
    for (const auto& [name, reader] : readers) {
        if (name == operation) return reader;
    }
    return nullptr;
}

// Parsing never reaches the network, and libxml2's own limits on text size
// and entity expansion stay in force.
constexpr int kParseOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

bool fail(SoapRequestProblem& problem, std::string reason) {
    problem.reason = std::move(reason);
    return false;
}

}  // namespace

bool readSoapRequest(std::string_view body, SoapRequest& request, SoapRequestProblem& problem) {
    const XmlDocument doc(xmlReadMemory(body.data(), static_cast<int>(body.size()), nullptr,
                                        nullptr, kParseOptions));
    xmlNodePtr envelope = doc ? xmlDocGetRootElement(doc.get()) : nullptr;
    if (envelope == nullptr) return fail(problem, "The request body is not well-formed XML");
    const char* uri = inNamespace(envelope, kSOAP12EnvelopeNamespace) ? kSOAP12EnvelopeNamespace
                                                                      : kSOAP11EnvelopeNamespace;
    problem.version = uri == kSOAP12EnvelopeNamespace ? SoapVersion::Soap12 : SoapVersion::Soap11;
    if (!named(envelope, "Envelope") || !inNamespace(envelope, uri)) {
        return fail(problem, "The request is not a SOAP 1.1 or 1.2 Envelope");
    }
    xmlNodePtr soapBody = childNamed(envelope, "Body", uri);
    xmlNodePtr element = soapBody ? firstElement(soapBody) : nullptr;
    if (element == nullptr) return fail(problem, "The request's SOAP Body names no operation");
    problem.operation = reinterpret_cast<const char*>(element->name);
    const RecordReader reader = readerFor(problem.operation);
    if (reader == nullptr) {
        return fail(problem, "Unknown operation \"" + problem.operation + "\"");
    }
    request.version = problem.version;
    request.operation = problem.operation;
    request.record = reader(element);
    return true;
}

}  // namespace kora::service
