#include "net/share/VipsThumbnail.h"

#include <unistd.h>
#include <vips/vips.h>

#include <cstdio>
#include <filesystem>
#include <mutex>

#include "filemanager/FileManagerUtil.h"
#include "platform/Log.h"

namespace harbor {
namespace {

bool initVips() {
  static bool ok = [] {
    if (VIPS_INIT("harbor") != 0) {
      HB_LOG("VipsThumbnail", "cannot start libvips");
      return false;
    }
    // Uploaded files are strangers: only the well-kept loaders may open them.
    vips_block_untrusted_set(TRUE);
    // One small image at a time: no cache, no worker crowd.
    vips_cache_set_max(0);
    vips_concurrency_set(1);
    return true;
  }();
  return ok;
}

struct Image {
  VipsImage* p = nullptr;
  ~Image() {
    if (p) g_object_unref(p);
  }
};

// Written beside the target and renamed, so a reader never sees half a JPEG.
bool save(VipsImage* in, const std::string& target) {
  Image flat;
  if (vips_image_hasalpha(in)) {
    VipsArrayDouble* white = vips_array_double_newv(1, 255.0);
    int r = vips_flatten(in, &flat.p, "background", white, nullptr);
    vips_area_unref(VIPS_AREA(white));
    if (r != 0) return false;
    in = flat.p;
  }
  std::string temp = target + ".part" + std::to_string(::getpid());
  if (vips_jpegsave(in, temp.c_str(), "Q", 80, "strip", TRUE, nullptr) != 0) {
    std::remove(temp.c_str());
    return false;
  }
  std::error_code ec;
  std::filesystem::rename(temp, target, ec);
  if (ec) std::remove(temp.c_str());
  return !ec;
}

bool makeOne(const std::string& path, const std::string& target, int size, bool crop) {
  Image image;
  int r = crop ? vips_thumbnail(path.c_str(), &image.p, size, "height", size, "crop",
                                VIPS_INTERESTING_CENTRE, nullptr)
               : vips_thumbnail(path.c_str(), &image.p, size, "height", size, "size",
                                VIPS_SIZE_DOWN, nullptr);
  if (r != 0 || !save(image.p, target)) {
    HB_LOG("VipsThumbnail", "no image of " + path + ": " + vips_error_buffer());
    vips_error_clear();
    return false;
  }
  return true;
}

}  // namespace

bool VipsThumbnail::generate(const std::string& path, const std::string& thumbnailPath,
                             const std::string& screenPath) {
  if (!initVips()) return false;
  bool thumb = makeOne(path, thumbnailPath, kThumbnailSize, true);
  bool screen = thumb && makeOne(path, screenPath, kScreenSize, false);
  return thumb && screen;
}

void VipsThumbnail::install() {
  static std::once_flag once;
  std::call_once(once, [] { FileManagerUtil::setThumbnailGenerator(&VipsThumbnail::generate); });
}

}  // namespace harbor
