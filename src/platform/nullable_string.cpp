#include "platform/nullable_string.h"

namespace kora {

GVariant* nullableStringVariant(const std::optional<std::string>& text) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_STRING_ARRAY);
    if (text) g_variant_builder_add(&builder, "s", text->c_str());
    return g_variant_builder_end(&builder);
}

bool readNullableString(GVariant* array, std::optional<std::string>& text) {
    const gsize count = g_variant_n_children(array);
    if (count > 1) return false;
    text.reset();
    if (count == 0) return true;
    g_autoptr(GVariant) element = g_variant_get_child_value(array, 0);
    gsize length = 0;
    const gchar* characters = g_variant_get_string(element, &length);
    text.emplace(characters, length);
    return true;
}

}  // namespace kora
