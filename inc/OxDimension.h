#pragma once

#include "OxExport.h"

namespace oxil {

/** A size in pixels. Any values are stored as given, negative ones too. There is no comparison,
 *  deliberately. One object belongs to one thread at a time. */
class OXIL_API Dimension {
public:
    /** (0, 0). */
    constexpr Dimension() noexcept = default;

    /** From a size in pixels. */
    constexpr Dimension(int newWidth, int newHeight) noexcept : width(newWidth), height(newHeight)
    {
    }

    /** Sets both. */
    constexpr void setSize(int newWidth, int newHeight) noexcept
    {
        width = newWidth;
        height = newHeight;
    }

    int width = 0;   ///< pixels
    int height = 0;  ///< pixels
};

}  // namespace oxil
