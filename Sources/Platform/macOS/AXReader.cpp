#include <ApplicationServices/ApplicationServices.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "Platform/Accessibility.h"
#include "Platform/Patience.h"
#include "Platform/macOS/AXHandle.h"
#include "Platform/macOS/AXValues.h"
#include "Platform/macOS/CFRef.h"
#include "Platform/macOS/ManualAccessibility.h"

namespace tervain::Platform {
namespace {

using std::chrono::milliseconds;

/// All attributes but the children, in the order of AXAttribute.
constexpr std::size_t batchSize = static_cast<std::size_t>(AXAttribute::children);
using Batch = std::array<std::optional<AXValue>, batchSize>;

constexpr std::size_t all = std::numeric_limits<std::size_t>::max();

CFStringRef nameOf(AXAttribute attribute) {
  switch (attribute) {
    case AXAttribute::role:
      return kAXRoleAttribute;
    case AXAttribute::subrole:
      return kAXSubroleAttribute;
    case AXAttribute::title:
      return kAXTitleAttribute;
    case AXAttribute::value:
      return kAXValueAttribute;
    case AXAttribute::enabled:
      return kAXEnabledAttribute;
    case AXAttribute::focused:
      return kAXFocusedAttribute;
    case AXAttribute::position:
      return kAXPositionAttribute;
    case AXAttribute::size:
      return kAXSizeAttribute;
    case AXAttribute::children:
      return kAXChildrenAttribute;
  }
  return nullptr;
}

CFRef<CFArrayRef> namesOfBatch() {
  std::array<const void*, batchSize> names{};
  for (std::size_t index = 0; index < batchSize; ++index) {
    names[index] = nameOf(static_cast<AXAttribute>(index));
  }
  return CFRef<CFArrayRef>::adopt(
      CFArrayCreate(kCFAllocatorDefault, names.data(), batchSize, &kCFTypeArrayCallBacks));
}

/// Time that a guest which was suspended in between has not lived through is no waiting.
Patience::Duration now() {
  return std::chrono::nanoseconds(clock_gettime_nsec_np(CLOCK_UPTIME_RAW));
}

/// Whether a call failed because the element does not know that kind of question.
bool isRefused(AXError result) {
  switch (static_cast<std::int32_t>(result)) {
    case kAXErrorSuccess:
    case kAXErrorCannotComplete:
    case kAXErrorInvalidUIElement:
    case kAXErrorAPIDisabled:
    case kAXErrorAttributeUnsupported:
    case kAXErrorNoValue:
      return false;
    default:
      return true;
  }
}

/// Whether an application's silence has lasted for a timeout, which the system need not hit to the
/// millisecond. An application that has died is quicker to give the same code.
bool hasTimedOut(AXError result, Patience::Duration waited, milliseconds timeout) {
  return result == AXError::cannotComplete && waited >= timeout * 9 / 10;
}

}  // namespace

/// Asks about an element in two or three messages: for its attributes, its action names and, if
/// they are wanted, its children. A fourth tells how many children are beyond those that the walk
/// looks at.
struct AXReader::State {
  State() = default;
  State(const AXElement& root, const AXWalk& walk)
      : root_(root), maxChildren_(std::min(walk.maxChildren, maxChildrenAsked)) {
    pid_t pid = 0;
    if (referenceTo(root) && AXUIElementGetPid(referenceTo(root), &pid) == kAXErrorSuccess) {
      requestElements(pid);
    }
  }

  std::optional<AXValue> attribute(const AXElement& element, AXAttribute attribute) {
    if (attribute == AXAttribute::children) {
      return children(element);
    }
    if (!current_ || &current_->handle() != &element.handle()) {
      current_ = element;
      batch_ = readBatch(element);
    }
    return batch_[static_cast<std::size_t>(attribute)];
  }

  std::vector<std::string> actionNames(const AXElement& element) {
    CFRef<CFArrayRef> names;
    const auto result =
        ask(element, [&](auto it) { return AXUIElementCopyActionNames(it, names.out()); });
    return result == AXError::success && names ? stringsOf(names.get())
                                               : std::vector<std::string>{};
  }

 private:
  /// Sends a question about an element, unless its application is given up, and notes how long the
  /// answer was waited for.
  template <class Question>
  AXError ask(const AXElement& element, Question question) {
    const auto reference = referenceTo(element);
    if (!reference || patience_.isExhausted()) {
      return AXError::cannotComplete;
    }
    const milliseconds timeout = element.handle().timeout;
    // The root has its timeout for good; others, on which hosts act later, only as long as they are
    // asked for the sake of a walk.
    const bool isLimited = root_ && &element.handle() != &root_->handle();
    if (isLimited) {
      setMessagingTimeout(reference, timeout);
    }
    const auto asked = now();
    const auto result = static_cast<AXError>(question(reference));
    const auto waited = now() - asked;
    patience_.note(waited, hasTimedOut(result, waited, timeout));
    if (isLimited) {
      setMessagingTimeout(reference, milliseconds(0));
    }
    return result;
  }

  Batch readBatch(const AXElement& element) {
    if (!names_) {
      return readOneByOne(element);
    }
    CFRef<CFArrayRef> values;
    const auto result = ask(element, [&](auto it) {
      return AXUIElementCopyMultipleAttributeValues(it, names_.get(), 0, values.out());
    });
    const bool isWhole = result == AXError::success && values &&
                         CFArrayGetCount(values.get()) == static_cast<CFIndex>(batchSize);
    if (!isWhole) {
      return result == AXError::success || isRefused(result) ? readOneByOne(element) : Batch{};
    }
    Batch batch;
    for (std::size_t index = 0; index < batchSize; ++index) {
      batch[index] = valueOfEntry(CFArrayGetValueAtIndex(values.get(), static_cast<CFIndex>(index)),
                                  element.handle().timeout);
    }
    return batch;
  }

  Batch readOneByOne(const AXElement& element) {
    Batch batch;
    for (std::size_t index = 0; index < batchSize; ++index) {
      batch[index] = readOne(element, static_cast<AXAttribute>(index), all);
    }
    return batch;
  }

  std::optional<AXValue> readOne(const AXElement& element, AXAttribute attribute,
                                 std::size_t wanted) {
    CFRef<CFTypeRef> value;
    const auto result = ask(element, [&](auto it) {
      return AXUIElementCopyAttributeValue(it, nameOf(attribute), value.out());
    });
    if (result != AXError::success || !value) {
      return std::nullopt;
    }
    return valueOf(value.get(), wanted, element.handle().timeout);
  }

  /// One more child is asked for than is looked at, so that the number of most lists is known from
  /// the answer.
  std::optional<AXValue> children(const AXElement& element) {
    CFRef<CFArrayRef> items;
    const auto result = ask(element, [&](auto it) {
      return AXUIElementCopyAttributeValues(it, kAXChildrenAttribute, 0,
                                            static_cast<CFIndex>(maxChildren_ + 1), items.out());
    });
    // A list may be shorter than what is asked for, so that this is about one without any elements.
    const bool isEmpty = result == AXError::illegalArgument;
    if (isRefused(result) && !isEmpty) {
      return readOne(element, AXAttribute::children, maxChildren_);
    }
    if (result != AXError::success || !items) {
      return std::nullopt;
    }
    AXValue value = valueOf(items.get(), maxChildren_, element.handle().timeout);
    auto* const elements = std::get_if<AXElements>(&value);
    if (elements && elements->count > maxChildren_) {
      elements->count = std::max(elements->count, childCount(element));
    }
    return value;
  }

  /// How many there are in all, or 0.
  std::size_t childCount(const AXElement& element) {
    CFIndex count = 0;
    const auto result = ask(element, [&](auto it) {
      return AXUIElementGetAttributeValueCount(it, kAXChildrenAttribute, &count);
    });
    return result == AXError::success ? static_cast<std::size_t>(std::max<CFIndex>(count, 0)) : 0;
  }

  /// More than any application has, and still a number that all of them can add to.
  static constexpr std::size_t maxChildrenAsked = 1'000'000;

  const std::optional<AXElement> root_;  // nothing outside of walks
  const std::size_t maxChildren_ = maxChildrenAsked;
  const CFRef<CFArrayRef> names_ = namesOfBatch();
  Patience patience_;
  std::optional<AXElement> current_;  // the one that batch_ is about
  Batch batch_;
};

AXReader::AXReader() : state_(std::make_unique<State>()) {}
AXReader::AXReader(const AXElement& root, const AXWalk& walk)
    : state_(std::make_unique<State>(root, walk)) {}
AXReader::~AXReader() = default;

std::optional<AXValue> AXReader::attribute(const AXElement& element, AXAttribute attribute) {
  return state_->attribute(element, attribute);
}

std::vector<std::string> AXReader::actionNames(const AXElement& element) {
  return state_->actionNames(element);
}

}  // namespace tervain::Platform
