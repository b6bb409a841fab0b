#include "Platform/Linux/Input/SpareKeys.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <tuple>
#include <utility>

#include "Platform/Linux/X11/Properties.h"

namespace tervain::Linux::X11 {
namespace {

/// The property of the root window that says what an agent has borrowed and, if it is no more,
/// never gave back: keycodes, each followed by the symbol that it was given.
constexpr std::string_view recordName = "_TERVAIN_BORROWED_KEYCODES";

void setSymbols(Session& x11, xcb_keycode_t keyCode, const std::vector<xcb_keysym_t>& symbols) {
  xcb_change_keyboard_mapping(x11.get(), /*keycode_count=*/1, keyCode,
                              static_cast<std::uint8_t>(symbols.size()), symbols.data());
}

}  // namespace

bool SpareKeys::Key::isOurs(const KeyboardMap& map) const {
  return symbols && symbols->plain != XCB_NO_SYMBOL && map.symbol(keyCode, 0) == symbols->plain;
}

bool SpareKeys::refresh(Session& x11, KeyboardMap& map) {
  const std::vector<Key> before = std::exchange(keys_, {});
  std::copy_if(before.begin(), before.end(), std::back_inserter(keys_),
               [&map](const Key& key) { return key.isOurs(map); });
  if (keys_.empty() && !adopt(x11, map)) {
    return false;
  }
  for (const xcb_keycode_t keyCode : map.spareKeyCodes()) {
    // A keycode given back a moment ago still has to settle.
    const auto known = std::find_if(before.begin(), before.end(),
                                    [keyCode](const Key& key) { return key.keyCode == keyCode; });
    keys_.push_back({keyCode});
    keys_.back().settled = known == before.end() ? Deadline{} : known->settled;
  }
  for (const Key& key : keys_) {
    map.hide(key.keyCode);
  }
  return true;
}

/// Takes over what another agent has left borrowed.
bool SpareKeys::adopt(Session& x11, const KeyboardMap& map) {
  record_ = atom(x11, recordName);
  if (record_ == XCB_ATOM_NONE) {
    return false;
  }
  const auto left = numbers(x11, x11.screen().root, record_);
  for (std::size_t i = 0; i + 1 < left.size(); i += 2) {
    const Key key{static_cast<xcb_keycode_t>(left[i]), KeySymbols{left[i + 1], left[i + 1]}};
    if (key.isOurs(map)) {
      keys_.push_back(key);
    }
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
  key->symbols = symbols;
  key->inUse = true;
  writeRecord(x11);
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

std::optional<Deadline> SpareKeys::nextSettled() {
  const auto key = longestUnused();
  if (key == keys_.end() || key->inUse) {
    return std::nullopt;
  }
  return key->settled;
}

bool SpareKeys::anyBorrowed() const {
  return std::any_of(keys_.begin(), keys_.end(),
                     [](const Key& key) { return key.symbols.has_value(); });
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

void SpareKeys::writeRecord(Session& x11) const {
  std::vector<std::uint32_t> record;
  for (const Key& key : keys_) {
    if (key.symbols) {
      record.insert(record.end(), {key.keyCode, key.symbols->plain});
    }
  }
  xcb_change_property(x11.get(), XCB_PROP_MODE_REPLACE, x11.screen().root, record_,
                      XCB_ATOM_CARDINAL, /*format=*/32, static_cast<std::uint32_t>(record.size()),
                      record.data());
}

}  // namespace tervain::Linux::X11
