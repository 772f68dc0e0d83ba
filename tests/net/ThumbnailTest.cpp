#include <gtest/gtest.h>
#include <vips/vips.h>

#include <filesystem>

#include "NetTestClient.h"
#include "filemanager/FileManagerUtil.h"
#include "filemanager/FileUtil.h"
#include "net/share/WiFiShare.h"
#include "support/TestSupport.h"

namespace harbor {
namespace {
namespace fs = std::filesystem;
using test::bodyOf;
using test::RawClient;

// A real image file of the given size: a gradient, with alpha if asked.
void writeImage(const std::string& path, int width, int height, bool alpha) {
  ASSERT_EQ(VIPS_INIT("harbor-test"), 0);
  VipsImage* x = nullptr;
  VipsImage* img = nullptr;
  ASSERT_EQ(vips_xyz(&x, width, height, nullptr), 0);
  ASSERT_EQ(vips_cast_uchar(x, &img, nullptr), 0);
  g_object_unref(x);
  VipsImage* bands = nullptr;
  VipsImage* in[4] = {img, img, img, img};
  ASSERT_EQ(vips_bandjoin(in, &bands, alpha ? 4 : 3, nullptr), 0);
  g_object_unref(img);
  ASSERT_EQ(vips_image_write_to_file(bands, path.c_str(), nullptr), 0);
  g_object_unref(bands);
}

std::pair<int, int> sizeOfJpeg(const std::string& bytes) {
  VipsImage* img = vips_image_new_from_buffer(bytes.data(), bytes.size(), "", nullptr);
  if (!img) return {0, 0};
  std::pair<int, int> wh{vips_image_get_width(img), vips_image_get_height(img)};
  g_object_unref(img);
  return wh;
}

// What the list reply says of one item's field.
std::string field(const std::string& list, const std::string& name, const std::string& key) {
  std::size_t at = list.find("{'name':'" + name + "'");
  if (at == std::string::npos) return "<missing>";
  std::size_t k = list.find("'" + key + "':'", at);
  k += key.size() + 4;
  return list.substr(k, list.find('\'', k) - k);
}

class ThumbnailTest : public test::TempHome {
 protected:
  void SetUp() override {
    TempHome::SetUp();
    docs_ = FileUtil::documentDirectory();
    share_ = std::make_unique<WiFiShare>();
    share_->initHttpServer();
    share_->webServer()->setPort(0);
    share_->webServer()->setInterface("127.0.0.1");
    ASSERT_TRUE(share_->startHttpServer());
    port_ = share_->webServer()->listeningPort();
  }
  void TearDown() override {
    share_.reset();
    TempHome::TearDown();
  }
  std::string get(const std::string& target) {
    RawClient c(port_);
    c.send("GET " + target + " HTTP/1.1\r\nConnection: close\r\n\r\n");
    return bodyOf(c.readAll(5000));
  }
  std::string docs_;
  std::unique_ptr<WiFiShare> share_;
  std::uint16_t port_ = 0;
};

TEST_F(ThumbnailTest, ImagesListWithA75PixelJpegTheBrowserCanFetch) {
  writeImage(docs_ + "/wide pic.png", 300, 120, true);
  writeImage(docs_ + "/photo.JPG", 64, 64, false);  // smaller than a thumbnail
  test::writeFile(docs_ + "/broken.png", "not an image at all");
  test::writeFile(docs_ + "/notes.txt", "text");

  std::string list = get("/?type=list&guid=g");
  EXPECT_EQ(field(list, "notes.txt", "iconurl"), "");
  EXPECT_EQ(field(list, "broken.png", "iconurl"), "");
  for (const char* name : {"wide pic.png", "photo.JPG"}) {
    std::string icon = field(list, name, "iconurl");
    ASSERT_NE(icon.rfind("/Thumbnails/", 0), std::string::npos) << name << ": " << icon;
    EXPECT_NE(icon.find("?type=supportfile"), std::string::npos);
    EXPECT_EQ(icon.find(' '), std::string::npos) << "escaped: " << icon;
    std::string jpeg = get(icon + "&guid=g");
    ASSERT_GE(jpeg.size(), 3u) << name;
    EXPECT_EQ(jpeg.substr(0, 3), "\xff\xd8\xff") << name;
    EXPECT_EQ(sizeOfJpeg(jpeg), std::make_pair(75, 75)) << name;
  }
  // Made once: a second list keeps the cached file.
  std::string thumb = FileManagerUtil::getThumbnailImage(docs_ + "/wide pic.png");
  ASSERT_FALSE(thumb.empty());
  auto made = fs::last_write_time(thumb);
  get("/?type=list&guid=g");
  EXPECT_EQ(fs::last_write_time(thumb), made);
}

}  // namespace
}  // namespace harbor
