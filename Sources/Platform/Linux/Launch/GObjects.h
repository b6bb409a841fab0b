#pragma once

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>

#include <memory>

namespace tervain::Linux {

/// Gives back what GLib has handed out.
struct Release {
  void operator()(GError* error) const { g_error_free(error); }
  void operator()(GList* list) const { g_list_free(list); }
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
  void operator()(GKeyFile* file) const { g_key_file_unref(file); }
  void operator()(char* text) const { g_free(text); }
  void operator()(char** texts) const { g_strfreev(texts); }
  template <class T>
  void operator()(T* object) const {
    g_object_unref(object);
  }
};
template <class T>
using Owned = std::unique_ptr<T, Release>;

}  // namespace tervain::Linux
