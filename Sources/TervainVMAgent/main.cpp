#include "TervainVMAgent/StartUp.h"

int main() {
  return tervain::runAgent();
}
