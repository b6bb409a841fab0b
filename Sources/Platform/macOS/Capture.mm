#include "Platform/Capture.h"

#import <AppKit/AppKit.h>
#import <ScreenCaptureKit/ScreenCaptureKit.h>

#include "Platform/macOS/CFRef.h"
#include "Platform/macOS/Text.h"

namespace tervain::Platform {

struct ShareableDisplay::Handle {
  SCContentFilter* filter;
};

struct Image::Handle {
  CFRef<CGImageRef> image;
};

namespace {

/// What the service's handlers get: the object they ask for, or an error; or nothing in time.
template <class Object>
using Answer = std::variant<Object, CaptureError, TimedOut>;

CaptureError captureError(NSError* error) {
  return {utf8(error.description)};
}

template <class Object>
Answer<Object> waitFor(ResultBox<Answer<Object>>& box, Deadline deadline) {
  auto answer = box.waitUntil(deadline);
  return answer ? std::move(*answer) : TimedOut{};
}

ShareableDisplay wholeDisplay(SCDisplay* display) {
  SCContentFilter* const filter = [[SCContentFilter alloc] initWithDisplay:display
                                                          excludingWindows:@[]];
  return {std::make_shared<ShareableDisplay::Handle>(ShareableDisplay::Handle{filter}),
          {filter.contentRect.size.width, filter.contentRect.size.height},
          filter.pointPixelScale};
}

Answer<SCShareableContent*> shareableContent(Deadline deadline) {
  const auto box = std::make_shared<ResultBox<Answer<SCShareableContent*>>>();
  [SCShareableContent
      getShareableContentWithCompletionHandler:^(SCShareableContent* content, NSError* error) {
        if (content) {
          box->put(content);
        } else {
          box->put(captureError(error));
        }
      }];
  return waitFor(*box, deadline);
}

}  // namespace

Answer<std::vector<ShareableDisplay>> shareableDisplays(Deadline deadline) {
  @autoreleasepool {
    // Connects to the window server. A program without windows has not done so by itself, and
    // content filters may end the process over it.
    CGMainDisplayID();
    const auto content = shareableContent(deadline);
    if (const auto* error = std::get_if<CaptureError>(&content)) {
      return *error;
    }
    if (std::holds_alternative<TimedOut>(content)) {
      return TimedOut{};
    }
    std::vector<ShareableDisplay> displays;
    for (SCDisplay* display in std::get<SCShareableContent*>(content).displays) {
      displays.push_back(wholeDisplay(display));
    }
    return displays;
  }
}

Answer<Image> captureImage(const ShareableDisplay& display, std::size_t width, std::size_t height,
                           Deadline deadline) {
  @autoreleasepool {
    SCStreamConfiguration* const configuration = [[SCStreamConfiguration alloc] init];
    configuration.width = width;
    configuration.height = height;
    configuration.showsCursor = YES;
    const auto box = std::make_shared<ResultBox<Answer<Image>>>();
    [SCScreenshotManager captureImageWithFilter:display.handle->filter
                                  configuration:configuration
                              completionHandler:^(CGImageRef image, NSError* error) {
                                if (image) {
                                  box->put(Image{std::make_shared<Image::Handle>(Image::Handle{
                                                     CFRef<CGImageRef>::retain(image)}),
                                                 CGImageGetWidth(image), CGImageGetHeight(image)});
                                } else {
                                  box->put(captureError(error));
                                }
                              }];
    return waitFor(*box, deadline);
  }
}

std::optional<std::string> encodeJPEG(const Image& image, double quality) {
  @autoreleasepool {
    NSBitmapImageRep* const bitmap =
        [[NSBitmapImageRep alloc] initWithCGImage:image.handle->image.get()];
    NSData* const jpeg = [bitmap representationUsingType:NSBitmapImageFileTypeJPEG
                                              properties:@{
                                                NSImageCompressionFactor : @(quality)
                                              }];
    if (!jpeg) {
      return std::nullopt;
    }
    return std::string(static_cast<const char*>(jpeg.bytes), jpeg.length);
  }
}

std::vector<std::uint32_t> sampleColours(const Image& image, std::size_t columns,
                                         std::size_t rows) {
  std::vector<std::uint32_t> colours(columns * rows);
  const auto space = CFRef<CGColorSpaceRef>::adopt(CGColorSpaceCreateDeviceRGB());
  const auto context = CFRef<CGContextRef>::adopt(CGBitmapContextCreate(
      colours.data(), columns, rows, /*bitsPerComponent=*/8, columns * sizeof colours[0],
      space.get(), std::uint32_t{kCGImageAlphaNoneSkipFirst} | kCGBitmapByteOrder32Little));
  if (!context) {
    return {};
  }
  CGContextSetInterpolationQuality(context.get(), kCGInterpolationNone);
  CGContextDrawImage(context.get(),
                     CGRectMake(0, 0, static_cast<double>(columns), static_cast<double>(rows)),
                     image.handle->image.get());
  for (std::uint32_t& colour : colours) {
    colour &= 0xFFFFFFU;
  }
  return colours;
}

}  // namespace tervain::Platform
