#pragma once

namespace tervain::Platform {

/// Frees at its end what the system's frameworks have left on the calling thread to be freed later.
/// A thread that lives long makes one for each piece of its work, or it would keep it all.
/// Destroyed on the thread that made it, the last one made first.
class AutoreleasePool {
 public:
  AutoreleasePool();
  AutoreleasePool(const AutoreleasePool&) = delete;
  AutoreleasePool& operator=(const AutoreleasePool&) = delete;
  ~AutoreleasePool();

 private:
  [[maybe_unused]] void* pool_ = nullptr;  ///< the system's token; null where it has no such pools
};

}  // namespace tervain::Platform
