#include "Platform/Linux/Input/Keyboard.h"

#include <X11/keysym.h>
#include <xcb/xtest.h>

#include <algorithm>
#include <exception>
#include <thread>

#include "Platform/Linux/Input/FocusedWindow.h"
#include "Platform/Linux/Input/MacKeys.h"
#include "VMAgentCore/KeyMap.h"
#include "VMAgentCore/Unicode.h"

namespace tervain::Linux::X11 {
namespace {

/// How long one event may take where the server is slow.
constexpr std::chrono::seconds postLimit{15};

/// How long a chord that another thread holds down delays what would otherwise be typed with its
/// modifiers. Chords are held for much less.
constexpr std::chrono::milliseconds chordLimit{200};

/// How long an application may take to answer that it has looked up the borrowed keys. Qt makes its
/// whole keymap anew for each changed key, which takes more than a second on a busy machine and
/// five on one with ten times as much to do as it can.
constexpr std::chrono::milliseconds answerLimit{10'000};

/// How long borrowed keycodes stay borrowed after the last use.
constexpr std::chrono::milliseconds idleTime{500};

/// How often a server that doesn't answer is asked to take the keycodes back, each time after twice
/// as long: the last time half a minute after the last use.
constexpr int restoreAttempts = 7;

constexpr struct {
  std::uint64_t flag;
  xcb_keysym_t symbol;
} modifierKeys[] = {
    {EventFlags::maskControl, XK_Control_L},
    {EventFlags::maskAlternate, XK_Alt_L},
    {EventFlags::maskShift, XK_Shift_L},
    {EventFlags::maskCommand, XK_Super_L},
};

void sendKey(Session& x11, xcb_keycode_t keyCode, bool down) {
  xcb_test_fake_input(x11.get(), down ? XCB_KEY_PRESS : XCB_KEY_RELEASE, keyCode, XCB_CURRENT_TIME,
                      XCB_NONE, 0, 0, 0);
}

/// Keeps locks and latches from changing what keys type, and one layout active, for as long as it
/// lives. It only sends requests, and the server carries them out in order with the keys.
class NeutralLocks {
 public:
  NeutralLocks(Session& x11, const KeyboardLocks& locks, std::uint8_t group)
      : x11_(x11),
        locks_(locks),
        active_(x11.has(xcb_xkb_id) &&
                (locks.lockedModifiers != 0 || locks.latched || locks.lockedGroup != group)) {
    send(0, group);
  }
  NeutralLocks(const NeutralLocks&) = delete;
  NeutralLocks& operator=(const NeutralLocks&) = delete;
  ~NeutralLocks() { send(locks_.lockedModifiers, locks_.lockedGroup); }

 private:
  void send(std::uint8_t modifiers, std::uint8_t group) {
    constexpr std::uint8_t all = 0xFF;
    if (active_) {
      xcb_xkb_latch_lock_state(x11_.get(), XCB_XKB_ID_USE_CORE_KBD, all, modifiers,
                               /*lockGroup=*/1, group, /*affectModLatches=*/all,
                               /*latchGroup=*/1, 0);
    }
  }

  Session& x11_;
  const KeyboardLocks& locks_;
  bool active_;
};

/// The key symbols that type a text. The first half of a pair that the text ends with waits for the
/// text that this thread types next.
std::vector<xcb_keysym_t> symbolsOf(std::u16string_view text) {
  thread_local char16_t firstHalf = 0;
  std::vector<xcb_keysym_t> symbols;
  for (const char16_t unit : text) {
    const char16_t pending = std::exchange(firstHalf, u'\0');
    if (isHighSurrogate(unit)) {
      firstHalf = unit;
      continue;
    }
    const bool completes = pending != 0 && isLowSurrogate(unit);
    if (const auto symbol = symbolOfCharacter(completes ? codePoint(pending, unit) : unit)) {
      symbols.push_back(*symbol);
    }
  }
  return symbols;
}

}  // namespace

/// What every use of the keyboard begins with.
struct Keyboard::Prepared {
  Session x11;
  KeyboardMap map;
};

Keyboard& Keyboard::shared() {
  static NeverDestroyed<Keyboard> keyboard;
  return *keyboard;
}

Keyboard::Keyboard()
    : restorer_(
          mutex_, idleTime, [this](auto& /*lock*/) { return giveBack(); }, restoreAttempts) {}

void Keyboard::type(std::u16string_view text) {
  const auto symbols = symbolsOf(text);
  if (symbols.empty()) {
    return;
  }
  const auto lock = lockWithoutChords();
  if (auto prepared = prepare()) {
    typeSymbols(*prepared, symbols);
    afterUse();
  }
}

void Keyboard::press(std::uint16_t keyCode, std::uint64_t flags) {
  const auto lock = lockWithoutChords();
  auto prepared = prepare();
  if (!prepared) {
    return;
  }
  std::uint8_t group = 0;
  const auto keys = chordKeys(*prepared, keyCode, flags, group);
  if (!keys.empty() && prepared->x11.roundTrip()) {
    const NeutralLocks neutral(prepared->x11, prepared->map.locks(), group);
    for (const xcb_keycode_t key : keys) {
      sendKey(prepared->x11, key, /*down=*/true);
    }
    held_[{keyCode, flags}] = keys;
  }
  prepared->x11.roundTrip();
  afterUse();
}

void Keyboard::release(std::uint16_t keyCode, std::uint64_t flags) {
  const std::lock_guard lock(mutex_);
  const auto held = held_.extract({keyCode, flags});
  if (held.empty()) {
    return;
  }
  chordEnded_.notify_all();
  bool taken = false;
  if (auto x11 = Session::open(after(postLimit))) {
    const auto& keys = held.mapped();
    std::for_each(keys.rbegin(), keys.rend(),
                  [&x11](xcb_keycode_t key) { sendKey(*x11, key, /*down=*/false); });
    taken = x11->roundTrip() && awaitTaken(*x11);
  }
  spareKeys_.endUse(taken);
  afterUse();
}

void Keyboard::restore() {
  const std::lock_guard lock(mutex_);
  if (spareKeys_.anyBorrowed()) {
    giveBack();
  }
}

std::unique_lock<std::mutex> Keyboard::lockWithoutChords() {
  std::unique_lock lock(mutex_);
  chordEnded_.wait_for(lock, chordLimit, [this] { return held_.empty(); });
  return lock;
}

/// A session that can post keys, the map as it is now, and the spare keycodes that go with it.
std::optional<Keyboard::Prepared> Keyboard::prepare() {
  auto x11 = Session::open(after(postLimit));
  if (!x11 || !x11->has(xcb_test_id)) {
    return std::nullopt;
  }
  auto map = KeyboardMap::read(*x11);
  if (!map || !spareKeys_.refresh(*x11, *map)) {
    return std::nullopt;
  }
  return Prepared{std::move(*x11), std::move(*map)};
}

/// How to type the symbols from one on, as far as the spare keycodes go. What the layout has is
/// typed on its own keys, so that plain text changes nothing in the map.
std::vector<Keyboard::Tap> Keyboard::plan(Prepared& prepared,
                                          const std::vector<xcb_keysym_t>& symbols,
                                          std::size_t from) {
  std::vector<Tap> taps;
  for (std::size_t i = from; i < symbols.size(); ++i) {
    if (const auto key = prepared.map.findTyping(symbols[i])) {
      taps.push_back({key->keyCode, key->shift});
    } else if (const auto spare = spareKeys_.borrow(prepared.x11, {symbols[i], symbols[i]})) {
      taps.push_back({*spare, false});
    } else {
      break;
    }
  }
  return taps;
}

void Keyboard::typeSymbols(Prepared& prepared, const std::vector<xcb_keysym_t>& symbols) {
  const auto shiftKey = prepared.map.findTyping(XK_Shift_L);
  for (std::size_t done = 0; done < symbols.size();) {
    const auto taps = plan(prepared, symbols, done);
    // The new symbols are known before the first key comes.
    if (!prepared.x11.roundTrip()) {
      return;
    }
    {
      const NeutralLocks neutral(prepared.x11, prepared.map.locks(), /*group=*/0);
      for (const Tap& tap : taps) {
        const bool shift = tap.shift && shiftKey;
        if (shift) {
          sendKey(prepared.x11, shiftKey->keyCode, /*down=*/true);
        }
        sendKey(prepared.x11, tap.keyCode, /*down=*/true);
        sendKey(prepared.x11, tap.keyCode, /*down=*/false);
        if (shift) {
          sendKey(prepared.x11, shiftKey->keyCode, /*down=*/false);
        }
      }
    }
    const bool posted = prepared.x11.roundTrip();
    spareKeys_.endUse(posted && awaitTaken(prepared.x11));
    done += taps.size();
    if (!posted) {
      return;
    }
    if (done < symbols.size()) {
      if (const auto settled = spareKeys_.nextSettled()) {
        std::this_thread::sleep_until(*settled);
      } else {
        ++done;  // there is no key for it, and none to spare
      }
    }
  }
}

/// The keys of a chord in the order of pressing, and the layout that they belong to. None when the
/// keyboard has no such key.
std::vector<xcb_keycode_t> Keyboard::chordKeys(Prepared& prepared, std::uint16_t keyCode,
                                               std::uint64_t flags, std::uint8_t& group) {
  std::vector<xcb_keycode_t> keys;
  for (const auto& modifier : modifierKeys) {
    if ((flags & modifier.flag) == 0) {
      continue;
    }
    if (const auto key = prepared.map.findKey(modifier.symbol)) {
      keys.push_back(key->keyCode);
    }
  }
  const auto symbols = symbolsOfMacKey(keyCode);
  if (!symbols) {
    return {};
  }
  if (const auto key = prepared.map.findKey(symbols->plain)) {
    group = key->group;
    keys.push_back(key->keyCode);
  } else if (const auto spare = spareKeys_.borrow(prepared.x11, *symbols)) {
    group = 0;
    keys.push_back(*spare);
  } else {
    return {};
  }
  return keys;
}

/// Waits until the application has looked up the borrowed keys that are in use. One that has been
/// silent is not waited for again until it answers quickly.
bool Keyboard::awaitTaken(Session& x11) {
  if (!spareKeys_.anyInUse()) {
    return true;
  }
  FocusedWindow focused(x11);
  const bool wasSilent = focused.window() != XCB_NONE && focused.window() == silentWindow_;
  const bool taken = focused.catchesUp(wasSilent ? SpareKeys::settleTime : answerLimit);
  silentWindow_ = taken ? xcb_window_t{XCB_NONE} : focused.window();
  return taken;
}

/// Sees to it that what is borrowed is given back. Where there is no thread for that, the next use
/// tries again, and the end of the process does.
void Keyboard::afterUse() {
  if (spareKeys_.anyBorrowed()) {
    restorer_.restart();
  }
}

bool Keyboard::giveBack() try {
  auto x11 = Session::open(after(lookLimit));
  return x11 && spareKeys_.giveBack(*x11);
} catch (const std::exception&) {
  return false;  // no memory or no thread now: what leaves a thread ends the process
}

}  // namespace tervain::Linux::X11
