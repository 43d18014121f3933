#pragma once

namespace platform {

/// The system's dynamic colours that the product uses; each platform has its own shade of them.
enum class Color { systemOrange, systemRed, controlBackground };

}  // namespace platform
