#include "platform/Image.h"

#include "platform/qt/Rendering.h"

namespace platform {

std::optional<Image> Image::withSystemSymbolName(const std::string& name,
                                                 const std::string& accessibilityDescription) {
  if (!symbolDrawing(name)) return std::nullopt;
  return Image{name, accessibilityDescription};
}

}  // namespace platform
