#pragma once

#include <QByteArray>
#include <QImage>
#include <array>
#include <filesystem>

/// Symbols as icons need them. Drawing one takes a rasteriser, which is a megabyte of a small
/// program's memory, so the build draws them ahead: beside each drawing NAME.svg lies NAME.masks.
namespace platform {

/// The sizes that bars ask for, in pixels.
inline constexpr std::array iconSizes{16, 22, 24, 32, 44, 48, 64};

/// How far a symbol covers each pixel, in QImage::Format_Alpha8, for each of `iconSizes`.
using SymbolMasks = std::array<QImage, iconSizes.size()>;

/// Draws the masks of a drawing. They are empty if it cannot be read. Any thread.
SymbolMasks drawMasks(const std::filesystem::path& drawing);

/// The content of the file that `masksOf` wants beside that drawing. Any thread.
QByteArray drawnAhead(const std::filesystem::path& drawing);

/// The masks of a drawing: as they were drawn ahead, or drawn now if the drawing has changed since
/// or nothing whole lies beside it. Any thread.
SymbolMasks masksOf(const std::filesystem::path& drawing);

}  // namespace platform
