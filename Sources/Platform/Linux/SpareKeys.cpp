#include "Platform/Linux/SpareKeys.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <tuple>
#include <utility>

namespace tervain::X11 {
namespace {

constexpr std::string_view recordName = "_TERVAIN_BORROWED_KEYCODES";

/// The keycodes that an agent has borrowed and, if it is no more, never gave back.
std::vector<xcb_keycode_t> readRecord(Session& x11, xcb_atom_t record) {
  constexpr std::uint32_t longest = 256 / 4;
  const auto reply = x11.await<xcb_get_property_reply_t>(
      xcb_get_property(x11.get(), /*_delete=*/0, x11.screen().root, record, XCB_ATOM_CARDINAL, 0,
                       longest)
          .sequence);
  if (!reply || reply->format != 8) {
    return {};
  }
  const auto* const codes = static_cast<const xcb_keycode_t*>(xcb_get_property_value(reply.get()));
  return {codes, codes + xcb_get_property_value_length(reply.get())};
}

void setSymbols(Session& x11, xcb_keycode_t keyCode, const std::vector<xcb_keysym_t>& symbols) {
  xcb_change_keyboard_mapping(x11.get(), /*keycode_count=*/1, keyCode,
                              static_cast<std::uint8_t>(symbols.size()), symbols.data());
}

}  // namespace

bool SpareKeys::Key::isOurs(const KeyboardMap& map) const {
  return symbols && map.symbol(keyCode, 0) == symbols->plain;
}

bool SpareKeys::refresh(Session& x11, KeyboardMap& map) {
  std::vector<Key> keys;
  std::copy_if(keys_.begin(), keys_.end(), std::back_inserter(keys),
               [&map](const Key& key) { return key.isOurs(map); });
  std::vector<xcb_keycode_t> spare = map.spareKeyCodes();
  if (keys.empty()) {
    record_ = x11.atom(recordName);
    if (record_ == XCB_ATOM_NONE) {
      return false;
    }
    const auto left = readRecord(x11, record_);
    spare.insert(spare.end(), left.begin(), left.end());
  }
  for (const xcb_keycode_t keyCode : spare) {
    const auto isIt = [keyCode](const Key& key) { return key.keyCode == keyCode; };
    if (std::none_of(keys.begin(), keys.end(), isIt)) {
      // A keycode given back a moment ago still has to settle.
      const auto known = std::find_if(keys_.begin(), keys_.end(), isIt);
      keys.push_back({keyCode});
      keys.back().settled = known == keys_.end() ? Clock::time_point{} : known->settled;
    }
  }
  keys_ = std::move(keys);
  for (const Key& key : keys_) {
    map.hide(key.keyCode);
  }
  return true;
}

std::vector<SpareKeys::Key>::iterator SpareKeys::longestUnused() {
  return std::min_element(keys_.begin(), keys_.end(), [](const Key& a, const Key& b) {
    return std::tie(a.inUse, a.settled) < std::tie(b.inUse, b.settled);
  });
}

std::optional<xcb_keycode_t> SpareKeys::borrow(Session& x11, const KeySymbols& symbols) {
  const auto known = std::find_if(keys_.begin(), keys_.end(),
                                  [&symbols](const Key& key) { return key.symbols == symbols; });
  if (known != keys_.end()) {
    known->inUse = true;
    return known->keyCode;
  }
  const auto key = longestUnused();
  if (key == keys_.end() || key->inUse || key->settled > Clock::now()) {
    return std::nullopt;
  }
  const bool isNew = !key->symbols;
  key->symbols = symbols;
  key->inUse = true;
  if (isNew) {
    writeRecord(x11);
  }
  setSymbols(x11, key->keyCode, {symbols.plain, symbols.shifted});
  return key->keyCode;
}

void SpareKeys::endUse(bool taken) {
  const auto settledAfter = taken ? Clock::duration::zero() : Clock::duration(settleTime);
  for (Key& key : keys_) {
    if (std::exchange(key.inUse, false)) {
      key.settled = Clock::now() + settledAfter;
    }
  }
}

bool SpareKeys::anyInUse() const {
  return std::any_of(keys_.begin(), keys_.end(), [](const Key& key) { return key.inUse; });
}

std::optional<Clock::time_point> SpareKeys::nextSettled() {
  const auto key = longestUnused();
  if (key == keys_.end() || key->inUse) {
    return std::nullopt;
  }
  return key->settled;
}

bool SpareKeys::anyBorrowed() const {
  return !borrowedKeyCodes().empty();
}

bool SpareKeys::giveBack(Session& x11) {
  const auto map = KeyboardMap::read(x11);
  if (!map) {
    return false;
  }
  for (const Key& key : keys_) {
    if (key.isOurs(*map)) {
      setSymbols(x11, key.keyCode, std::vector<xcb_keysym_t>(map->columns(), XCB_NO_SYMBOL));
    }
  }
  xcb_delete_property(x11.get(), x11.screen().root, record_);
  if (!x11.roundTrip()) {
    return false;
  }
  for (Key& key : keys_) {
    key.symbols.reset();
  }
  return true;
}

std::vector<xcb_keycode_t> SpareKeys::borrowedKeyCodes() const {
  std::vector<xcb_keycode_t> codes;
  for (const Key& key : keys_) {
    if (key.symbols) {
      codes.push_back(key.keyCode);
    }
  }
  return codes;
}

void SpareKeys::writeRecord(Session& x11) const {
  const auto codes = borrowedKeyCodes();
  xcb_change_property(x11.get(), XCB_PROP_MODE_REPLACE, x11.screen().root, record_,
                      XCB_ATOM_CARDINAL, /*format=*/8, static_cast<std::uint32_t>(codes.size()),
                      codes.data());
}

}  // namespace tervain::X11
