#pragma once

#import <Foundation/Foundation.h>

#include <string>
#include <string_view>

namespace tervain::Platform {

/// A string of a text, or nil when that is not UTF-8.
inline NSString* _Nullable nsString(std::string_view text) {
  return [[NSString alloc] initWithBytes:text.data()
                                  length:text.size()
                                encoding:NSUTF8StringEncoding];
}

/// A string's text. What UTF-8 can't express, such as half a surrogate pair, is replaced. Nil has
/// no text.
inline std::string utf8(NSString* _Nullable string) {
  NSData* const bytes = [string dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES];
  return {static_cast<const char*>(bytes.bytes), bytes.length};
}

}  // namespace tervain::Platform
