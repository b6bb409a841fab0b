#pragma once

#include <xcb/randr.h>
#include <xcb/res.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

#include <cstdlib>
#include <memory>
#include <type_traits>
#include <utility>

#include "Platform/Linux/X11/Xkb.h"

/// What the X server replies to which request.
namespace tervain::Linux::X11 {

struct FreeReply {
  void operator()(void* reply) const { std::free(reply); }  // NOLINT(*-no-malloc): xcb's way
};

/// A reply of the X server. Null when the server refused, has gone or did not answer in time.
template <class T>
using Reply = std::unique_ptr<T, FreeReply>;

namespace Replies {

/// The types that xcb itself gives a request's cookie and its reply: those of the function that
/// waits for it.
template <auto replyFunction>
struct Entry;
template <class T, class Cookie,
          T* (*replyFunction)(xcb_connection_t*, Cookie, xcb_generic_error_t**)>
struct Entry<replyFunction> {
  static std::type_identity<T> of(Cookie cookie);
};

template <auto... replyFunctions>
struct Table : Entry<replyFunctions>... {
  using Entry<replyFunctions>::of...;
};

/// Every request that is awaited anywhere.
using Known =
    Table<xcb_get_geometry_reply, xcb_get_image_reply, xcb_get_input_focus_reply,
          xcb_get_keyboard_mapping_reply, xcb_get_modifier_mapping_reply, xcb_get_property_reply,
          xcb_get_window_attributes_reply, xcb_intern_atom_reply, xcb_query_extension_reply,
          xcb_query_pointer_reply, xcb_query_tree_reply, xcb_translate_coordinates_reply,
          xcb_randr_get_monitors_reply, xcb_res_query_client_ids_reply, xcb_shm_get_image_reply,
          xcb_shm_query_version_reply, xcb_xfixes_get_cursor_image_reply,
          xcb_xfixes_query_version_reply, xcb_xkb_get_state_reply>;

}  // namespace Replies

/// The reply to the request that has a cookie of this type.
template <class Cookie>
using ReplyTo = Reply<typename decltype(Replies::Known::of(std::declval<Cookie>()))::type>;

}  // namespace tervain::Linux::X11
