#pragma once

#include <string>

namespace harbor {

// Thumbnails for the web file manager's list: a 75x75 JPEG cut from the
// middle of the image and a screen-sized JPEG, made with libvips.
class VipsThumbnail {
 public:
  VipsThumbnail() = delete;
  static constexpr int kThumbnailSize = 75;
  static constexpr int kScreenSize = 1024;

  // Makes both images; true when both were written.
  static bool generate(const std::string& path, const std::string& thumbnailPath,
                       const std::string& screenPath);
  // Makes it the file manager's thumbnail generator.
  static void install();
};

}  // namespace harbor
