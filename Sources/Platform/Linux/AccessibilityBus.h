#pragma once

/// The bus on which applications show their accessibility trees.
namespace tervain::AccessibilityBus {

/// Whether the accessibility bus exists and answers. Never takes longer than a second.
bool answers();

}  // namespace tervain::AccessibilityBus
