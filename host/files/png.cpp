#include "host/files/png.h"

#include <png.h>

#include <new>

namespace host {

namespace {

constexpr int kLargestSide = 65536;

struct Sink {
  std::vector<std::byte> bytes;
  std::string error;
};

// libpng leaves its functions by longjmp, so nothing with a destructor may live between here and
// Encode, and no exception may pass through it.
void Append(png_structp png, png_bytep data, png_size_t size) {
  auto* sink = static_cast<Sink*>(png_get_io_ptr(png));
  bool stored = true;
  try {
    const auto* first = reinterpret_cast<const std::byte*>(data);
    sink->bytes.insert(sink->bytes.end(), first, first + size);
  } catch (const std::bad_alloc&) {
    stored = false;
  }
  if (!stored) png_error(png, "not enough memory");
}

void Flush(png_structp) {}

[[noreturn]] void Fail(png_structp png, png_const_charp message) {
  static_cast<Sink*>(png_get_error_ptr(png))->error = message;
  png_longjmp(png, 1);
}

void Warn(png_structp, png_const_charp) {}

bool Encode(png_structp png, png_infop info, int width, int height, const std::uint8_t* rgb) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_set_IHDR(png, info, png_uint_32(width), png_uint_32(height), 8, PNG_COLOR_TYPE_RGB,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_sRGB(png, info, PNG_sRGB_INTENT_PERCEPTUAL);
  png_set_compression_level(png, 4);
  png_write_info(png, info);
  for (int y = 0; y < height; ++y) png_write_row(png, rgb + size_t(y) * size_t(width) * 3);
  png_write_end(png, nullptr);
  return true;
}

}  // namespace

bool EncodePng(int width, int height, std::span<const std::uint8_t> rgb,
               std::vector<std::byte>& png, std::string& error) {
  if (width < 1 || width > kLargestSide || height < 1 || height > kLargestSide) {
    error = "a picture of " + std::to_string(width) + " x " + std::to_string(height) +
            " pixels: each side must be 1 to " + std::to_string(kLargestSide);
    return false;
  }
  const size_t needed = size_t(width) * size_t(height) * 3;
  if (rgb.size() != needed) {
    error = "a picture of " + std::to_string(width) + " x " + std::to_string(height) +
            " pixels needs " + std::to_string(needed) + " bytes, not " + std::to_string(rgb.size());
    return false;
  }
  Sink sink;
  png_structp writer = png_create_write_struct(PNG_LIBPNG_VER_STRING, &sink, Fail, Warn);
  png_infop info = writer ? png_create_info_struct(writer) : nullptr;
  bool done = false;
  if (info) {
    png_set_write_fn(writer, &sink, Append, Flush);
    done = Encode(writer, info, width, height, rgb.data());
  } else {
    sink.error = "not enough memory";
  }
  png_destroy_write_struct(&writer, &info);
  if (!done) return error = "cannot encode a PNG: " + sink.error, false;
  png = std::move(sink.bytes);
  return true;
}

}  // namespace host
