#pragma once

#include <cstdint>

#include "OxExport.h"

namespace oxil {

/**
 * A colour, kept both as a packed ARGB word and as hue, saturation and value.
 *
 * Setting a part of one view computes the other anew. The computation has single precision and
 * truncates: a colour that goes from RGB to HSV and back may come out one lower in a channel (the
 * grey 45 becomes 44), and that is accepted. Results are the same bits on every host.
 *
 * Nothing is checked or clamped. Of red, green, blue and alpha the low 8 bits count. Hue (degrees),
 * saturation and value (percent) are computed within [0, 360), [0, 100] and [0, 100], but stored as
 * given; out of range they are computed with as they are, and channels outside 0 to 255 wrap.
 *
 * Alpha takes no part in the computation; 255 is opaque.
 *
 * Three or four `int` are red, green, blue and alpha; `float` are hue, saturation and value.
 * Anything between, `double` included, is ambiguous and does not compile.
 *
 * @par Threads
 * No locks; a value belongs to one thread at a time.
 */
class OXIL_API Color {
public:
    /** From red, green, blue and alpha, 0 to 255 each. */
    Color(int red, int green, int blue, int alpha);

    /** The same, opaque. */
    Color(int red, int green, int blue);

    /** @param rgb32  0xAARRGGBB, of which 32 bits count: without alpha it is transparent */
    Color(unsigned long rgb32);

    /** From hue (degrees), saturation and value (percent), stored as given, and alpha. */
    Color(float hue, float saturation, float value, int alpha);

    /** The same, opaque. */
    Color(float hue, float saturation, float value);

    /** Whether word, hue, saturation and value are all the same. One word can have different hues:
     *  a colour made from HSV may differ from the one made from its word. */
    bool operator==(const Color& other) const noexcept;
    /** The opposite. */
    bool operator!=(const Color& other) const noexcept;

    int getRed() const noexcept;    ///< 0 to 255
    int getGreen() const noexcept;  ///< 0 to 255
    int getBlue() const noexcept;   ///< 0 to 255
    int getAlpha() const noexcept;  ///< 0 to 255

    /** The colour as 0xAARRGGBB. */
    unsigned int getRGB32() const noexcept;

    /** Degrees, as computed or given. */
    float getHue() const noexcept;

    /** Percent, as computed or given. */
    float getSaturation() const noexcept;

    /** Percent, as computed or given. */
    float getValue() const noexcept;

    /** The four bytes of the word. */
    void getColorComponents(int& red, int& green, int& blue, int& alpha) const noexcept;

    /** Hue, saturation and value as stored, and the alpha byte. */
    void getColorComponents(float& hue, float& saturation, float& value, int& alpha) const noexcept;

    /** Replaces the red byte by the low 8 bits; computes hue, saturation and value anew. */
    void setRed(int red);

    /** Replaces the green byte by the low 8 bits; computes hue, saturation and value anew. */
    void setGreen(int green);

    /** Replaces the blue byte by the low 8 bits; computes hue, saturation and value anew. */
    void setBlue(int blue);

    /** Replaces the alpha byte by the low 8 bits, and leaves everything else as it is. */
    void setAlpha(int alpha);

    /** Sets the word, and computes hue, saturation and value anew.
     *  @param rgb32      0xAARRGGBB
     *  @param withAlpha  whether the word's alpha counts; if not, the colour is opaque */
    void setRGB32(unsigned int rgb32, bool withAlpha);

    /** Stores the hue in degrees as given, and computes the word anew; alpha is kept. */
    void setHue(float hue);

    /** Stores the saturation in percent as given, and computes the word anew; alpha is kept. */
    void setSaturation(float saturation);

    /** Stores the value in percent as given, and computes the word anew; alpha is kept. */
    void setValue(float value);

    /** Computes hue, saturation and value from the word; the setters do. */
    void __calculateHSV();

    /** Computes the word, but for alpha, from hue, saturation and value; the setters do. */
    void __calculateRGB();

private:
    std::uint32_t __rgb32;
    float __hue;
    float __saturation;
    float __value;
};

}  // namespace oxil
