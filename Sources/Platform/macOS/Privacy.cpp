#include "Platform/Privacy.h"

#include <ApplicationServices/ApplicationServices.h>

namespace tervain::Platform {

bool accessibilityGranted() {
  return AXIsProcessTrusted() != 0;
}

bool screenRecordingGranted() {
  return CGPreflightScreenCaptureAccess();
}

bool postEventGranted() {
  return CGPreflightPostEventAccess();
}

}  // namespace tervain::Platform
