#pragma once

#include <libxml/tree.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "codecs/soap_fault.h"
#include "codecs/us_boolean.h"
#include "codecs/value_codecs.h"
#include "platform/date.h"

namespace kora {

class KoraRecord;

// Whatever a reader of the type registry can produce. A value codec that
// finds nothing readable gives std::monostate.
using MessageValue = std::variant<std::monostate, std::string, double, Date, ByteBuffer, USBoolean,
                                  SOAPFault, std::shared_ptr<const KoraRecord>>;

// The storage of a field: absent until set.
using OptionalText = std::optional<std::string>;
using OptionalNumber = std::optional<double>;

// The value of one field as printing tools see it; std::monostate when absent.
using FieldValue = std::variant<std::monostate, const std::string*, double, const KoraRecord*>;

struct FieldView {
    std::string_view elementName;
    FieldValue value;
};

// One row of a record's field table. The table, in field order, drives both
// writing and reading, so every record type is described once.
struct FieldSpec {
    std::string_view elementName;
    // The registry name of the field's declared type, read when the element
    // carries no xsi:type.
    std::string_view declaredType;
    // The field's element, or null when the field is absent.
    xmlNodePtr (*write)(const KoraRecord& record, xmlDocPtr doc, std::string_view elementName);
    void (*readDeclared)(KoraRecord& record, xmlNodePtr element);
    // Keeps a value read by another type's reader when the field can hold it;
    // otherwise the field becomes absent.
    void (*store)(KoraRecord& record, MessageValue&& value);
    FieldValue (*view)(const KoraRecord& record);
};

// What every message record of the update service offers: its XML element,
// written with the "KORA" prefix, and reading back by local name.
class KoraRecord {
  public:
    virtual ~KoraRecord() = default;

    virtual std::string_view recordTypeName() const = 0;
    virtual const std::vector<FieldSpec>& fields() const = 0;

    std::string nsPrefix() const { return "KORA"; }

    // A new element of `doc`, not yet linked, named "prefix:elementName"
    // ("KORA:elementName" without a prefix), holding the present fields.
    xmlNodePtr xmlNodeForDoc(xmlDocPtr doc, std::string_view elementName,
                             const std::optional<std::string>& prefix) const;

    // No record has attributes.
    void addAttributesToNode(xmlNodePtr) const {}
    void deserializeAttributesFromNode(xmlNodePtr) {}
    std::map<std::string, std::string> attributes() const { return {}; }

    void addElementsToNode(xmlNodePtr node) const;
    // Fills the fields from the element's child elements, matched by local
    // name; the later of two equal elements wins, unknown ones are ignored.
    void deserializeElementsFromNode(xmlNodePtr node);

    std::vector<FieldView> fieldValues() const;

    bool operator==(const KoraRecord&) const = default;

  protected:
    KoraRecord() = default;
    KoraRecord(const KoraRecord&) = default;
    KoraRecord& operator=(const KoraRecord&) = default;

  private:
    void readField(const FieldSpec& field, xmlNodePtr element);
};

// The base of each record type: `Derived` gives the xsi:type text that
// names it on the wire (kXsiType) and its field table (fieldTable()).
template <typename Derived>
class KoraRecordOf : public KoraRecord {
  public:
    std::string_view recordTypeName() const final { return Derived::kXsiType; }
    const std::vector<FieldSpec>& fields() const final { return Derived::fieldTable(); }

    static Derived deserializeNode(xmlNodePtr node) {
        Derived record;
        if (node != nullptr) {
            record.deserializeAttributesFromNode(node);
            record.deserializeElementsFromNode(node);
        }
        return record;
    }
};

// How a field of declared type Value is read and recognised.
template <typename Value>
struct FieldType {  // record types
    static_assert(std::is_base_of_v<KoraRecord, Value>);
    static std::string_view name() { return Value::kXsiType; }
    static std::optional<Value> read(xmlNodePtr element) { return Value::deserializeNode(element); }
    static std::optional<Value> fromMessageValue(MessageValue&& value) {
        const auto* record = std::get_if<std::shared_ptr<const KoraRecord>>(&value);
        const auto* typed = record ? dynamic_cast<const Value*>(record->get()) : nullptr;
        if (typed == nullptr) return std::nullopt;
        return *typed;
    }
};

template <typename Scalar>
struct ScalarFieldType {
    static std::optional<Scalar> read(xmlNodePtr element) {
        return ValueCodec<Scalar>::deserializeNode(element);
    }
    static std::optional<Scalar> fromMessageValue(MessageValue&& value) {
        if (auto* scalar = std::get_if<Scalar>(&value)) return std::move(*scalar);
        return std::nullopt;
    }
};

template <>
struct FieldType<std::string> : ScalarFieldType<std::string> {
    static std::string_view name() { return "NSString"; }
};

template <>
struct FieldType<double> : ScalarFieldType<double> {
    static std::string_view name() { return "NSNumber"; }
};

// The table row of the field stored in `Member` of `Record` (the member may
// sit in a base class of Record that holds fields shared by several records).
template <typename Record, typename Value, auto Member>
FieldSpec makeField(std::string_view elementName) {
    using Type = FieldType<Value>;
    return FieldSpec{
        elementName,
        Type::name(),
        [](const KoraRecord& record, xmlDocPtr doc, std::string_view name) -> xmlNodePtr {
            const std::optional<Value>& value = static_cast<const Record&>(record).*Member;
            if (!value) return nullptr;
            // A nested record names itself with its own prefix; a value gets "KORA".
            if constexpr (std::is_base_of_v<KoraRecord, Value>) {
                return value->xmlNodeForDoc(doc, name, value->nsPrefix());
            } else {
                return ValueCodec<Value>::xmlNodeForDoc(*value, doc, name, std::string("KORA"));
            }
        },
        [](KoraRecord& record, xmlNodePtr element) {
            static_cast<Record&>(record).*Member = Type::read(element);
        },
        [](KoraRecord& record, MessageValue&& value) {
            static_cast<Record&>(record).*Member = Type::fromMessageValue(std::move(value));
        },
        [](const KoraRecord& record) -> FieldValue {
            const std::optional<Value>& value = static_cast<const Record&>(record).*Member;
            if (!value) return std::monostate{};
            if constexpr (std::is_same_v<Value, std::string>) {
                return &*value;
            } else if constexpr (std::is_same_v<Value, double>) {
                return *value;
            } else {
                return static_cast<const KoraRecord*>(&*value);
            }
        },
    };
}

// The rows of a field table by kind: a text ("NSString"), a number
// ("NSNumber") or a nested record (its own xsi:type).
template <typename Record, auto Member>
FieldSpec textField(std::string_view elementName) {
    return makeField<Record, std::string, Member>(elementName);
}

template <typename Record, auto Member>
FieldSpec numberField(std::string_view elementName) {
    return makeField<Record, double, Member>(elementName);
}

template <typename Record, typename Nested, auto Member>
FieldSpec recordField(std::string_view elementName) {
    return makeField<Record, Nested, Member>(elementName);
}

}  // namespace kora
