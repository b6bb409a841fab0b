#pragma once

/// What the system lets the agent do, asked anew by every call. None of them requests anything, and
/// none blocks for long: what can't be found out in time counts as not granted.
namespace tervain::Platform {

/// Whether the accessibility interface may be used.
bool accessibilityGranted();

/// Whether the screen may be captured.
bool screenRecordingGranted();

/// Whether input events may be posted.
bool postEventGranted();

}  // namespace tervain::Platform
