// A finished picture, and its way into a file.
#include "host/render/Picture.h"

#include <OOCPointCloud/Repositories.h>
#include <png.h>

#include "host/common/OutputFile.h"

namespace tarnhost {

namespace {

png_image EmptyImage() {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  return image;
}

}  // namespace

Outcome WritePng(const Picture& picture, const std::filesystem::path& path) {
  png_image image = EmptyImage();
  image.width = picture.size.width;
  image.height = picture.size.height;
  image.format = PNG_FORMAT_RGB;
  png_alloc_size_t length = 0;
  std::vector<std::uint8_t> bytes;
  const void* pixels = picture.bytes.data();
  if (png_image_write_get_memory_size(image, length, 0, pixels, 0, nullptr) != 0) {
    bytes.resize(length);
  }
  if (bytes.empty() ||
      png_image_write_to_memory(&image, bytes.data(), &length, 0, pixels, 0, nullptr) == 0) {
    return Outcome::Failure(oocpc::result::kFail, image.message, path.string());
  }
  std::unique_ptr<OutputFile> file;
  if (Outcome outcome = OutputFile::Create(path, file); !outcome.Ok()) return outcome;
  Outcome outcome = file->Write(std::span<const std::uint8_t>(bytes.data(), length));
  return outcome.Ok() ? file->Commit() : outcome;
}

Outcome ReadPng(const std::filesystem::path& path, Picture& picture) {
  std::shared_ptr<const OOCPCByteSource> file;
  const HRESULT code = OOCPCMapFile(path, file);
  if (oocpc::Failed(code)) {
    return Outcome::Failure(oocpc::result::kScanNotRecognised, Outcome::FromCode(code).what,
                            path.string());
  }
  const std::span<const std::uint8_t> bytes = file->GetBytes();
  png_image image = EmptyImage();
  if (png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()) == 0) {
    return Outcome::Failure(oocpc::result::kScanNotRecognised, image.message, path.string());
  }
  if (image.width > kMostPixels || image.height > kMostPixels) {
    png_image_free(&image);
    return Outcome::Failure(oocpc::result::kPictureRefused, "the picture is too large",
                            path.string());
  }
  image.format = PNG_FORMAT_RGB;
  picture.size = {image.width, image.height};
  picture.bytes.resize(PNG_IMAGE_SIZE(image));
  if (png_image_finish_read(&image, nullptr, picture.bytes.data(), 0, nullptr) == 0) {
    return Outcome::Failure(oocpc::result::kScanNotRecognised, image.message, path.string());
  }
  return Outcome::Success();
}

}  // namespace tarnhost
