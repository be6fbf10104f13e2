#pragma once

#include <glib-object.h>

#include <memory>

namespace kora {

// A GObject held beyond one scope; within a scope, g_autoptr.
template <typename T>
struct GObjectUnref {
    void operator()(T* object) const { g_object_unref(object); }
};
template <typename T>
using ObjectPtr = std::unique_ptr<T, GObjectUnref<T>>;

}  // namespace kora
