// Draws the application icon (a camera glyph) at every size the launcher ships and writes it as one
// .ico file. Plain standard C++ so that it builds with whatever host compiler is at hand.
//
// Usage: make_icon OUTPUT.ico

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace {

struct Colour {
    float r, g, b, a;
};

// Premultiplied RGBA, so that layers compose with a plain "over".
struct Image {
    int size = 0;
    std::vector<float> r, g, b, a;
    explicit Image(int s) : size(s), r(s * s), g(s * s), b(s * s), a(s * s) {}
};

void Over(Image& image, int index, Colour c, float coverage) {
    const float alpha = c.a * coverage;
    if (alpha <= 0.0f) {
        return;
    }
    const float keep = 1.0f - alpha;
    image.r[index] = c.r * alpha + image.r[index] * keep;
    image.g[index] = c.g * alpha + image.g[index] * keep;
    image.b[index] = c.b * alpha + image.b[index] * keep;
    image.a[index] = alpha + image.a[index] * keep;
}

// Signed distances in pixels: negative inside.
float RoundedBox(float x, float y, float left, float top, float right, float bottom, float radius) {
    const float cx = (left + right) / 2, cy = (top + bottom) / 2;
    const float hx = (right - left) / 2 - radius, hy = (bottom - top) / 2 - radius;
    const float qx = std::fabs(x - cx) - hx, qy = std::fabs(y - cy) - hy;
    const float outside = std::hypot(std::max(qx, 0.0f), std::max(qy, 0.0f));
    return outside + std::min(std::max(qx, qy), 0.0f) - radius;
}

float Circle(float x, float y, float cx, float cy, float radius) {
    return std::hypot(x - cx, y - cy) - radius;
}

// Fraction of a pixel covered, for a distance taken at the pixel's centre; gives a one-pixel ramp.
float Coverage(float distance) {
    return std::clamp(0.5f - distance, 0.0f, 1.0f);
}

Colour Mix(Colour a, Colour b, float t) {
    return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t, a.a + (b.a - a.a) * t};
}

Colour Hex(std::uint32_t rgb, float alpha = 1.0f) {
    return {((rgb >> 16) & 0xFF) / 255.0f, ((rgb >> 8) & 0xFF) / 255.0f, (rgb & 0xFF) / 255.0f, alpha};
}

// Geometry is laid out per size rather than scaled from one master: at the small sizes the body's
// edges sit on whole pixels, strokes keep at least one pixel and the finer details are left out.
Image DrawCamera(int size) {
    Image image(size);
    const float s = static_cast<float>(size);
    const bool tiny = size <= 20;
    const bool small = size <= 32;
    auto snap = [&](float fraction) { return small ? std::round(fraction * s) : fraction * s; };

    const float left = snap(0.06f), right = s - snap(0.06f);
    const float top = snap(tiny ? 0.26f : 0.28f), bottom = snap(0.86f);
    const float radius = std::max(1.5f, 0.12f * s);
    const float humpLeft = snap(0.28f), humpRight = snap(0.60f), humpTop = snap(tiny ? 0.14f : 0.16f);
    const float humpRadius = std::max(1.0f, 0.05f * s);

    const float lensX = (left + right) / 2, lensY = (top + bottom) / 2 + (tiny ? 0.0f : 0.01f * s);
    const float lensOuter = (bottom - top) * 0.40f;
    const float ring = std::max(tiny ? 1.4f : 1.0f, 0.065f * s);
    const float lensInner = lensOuter - ring;
    const float glassEdge = std::max(0.0f, lensInner - std::max(1.0f, 0.035f * s));

    const Colour bodyTop = Hex(0x3B82F6), bodyBottom = Hex(0x1D4ED8);
    const Colour rim = Hex(0x1E3A8A, 0.9f);
    const Colour ringColour = Hex(0xF8FAFC);
    const Colour glassOuter = Hex(0x1E293B), glassInner = Hex(0x0F172A);
    const Colour shine = Hex(0xFFFFFF, 0.85f);
    const Colour lamp = Hex(0xFBBF24);

    for (int py = 0; py < size; ++py) {
        for (int px = 0; px < size; ++px) {
            const float x = px + 0.5f, y = py + 0.5f;
            const int index = py * size + px;

            const float body =
                std::min(RoundedBox(x, y, left, top, right, bottom, radius),
                         RoundedBox(x, y, humpLeft, humpTop, humpRight, top + humpRadius * 2, humpRadius));
            const float shade = std::clamp((y - humpTop) / (bottom - humpTop), 0.0f, 1.0f);
            Over(image, index, Mix(bodyTop, bodyBottom, shade), Coverage(body));
            if (!tiny) {
                // A darker band just inside the outline keeps the shape readable on light backgrounds.
                const float band = std::max(body, -body - std::max(1.0f, 0.03f * s));
                Over(image, index, rim, Coverage(band) * Coverage(body));
            }

            const float lens = Circle(x, y, lensX, lensY, lensOuter);
            Over(image, index, ringColour, Coverage(lens));
            const float glass = Circle(x, y, lensX, lensY, lensInner);
            Over(image, index, glassOuter, Coverage(glass));
            if (!small) {
                Over(image, index, glassInner, Coverage(Circle(x, y, lensX, lensY, glassEdge)));
            }
            if (size >= 24) {
                const float shineRadius = std::max(1.0f, lensInner * 0.28f);
                const float shineX = lensX - lensInner * 0.38f, shineY = lensY - lensInner * 0.38f;
                Over(image, index, shine, Coverage(Circle(x, y, shineX, shineY, shineRadius)));
            }
            if (!tiny) {
                const float lampRadius = std::max(1.0f, 0.045f * s);
                const float lampX = right - 0.14f * s, lampY = top + 0.12f * s;
                Over(image, index, lamp, Coverage(Circle(x, y, lampX, lampY, lampRadius)));
            }
        }
    }
    return image;
}

void Put16(std::string& out, unsigned value) {
    out.push_back(static_cast<char>(value & 0xFF));
    out.push_back(static_cast<char>((value >> 8) & 0xFF));
}

void Put32(std::string& out, std::uint32_t value) {
    Put16(out, value & 0xFFFF);
    Put16(out, value >> 16);
}

std::uint8_t ToByte(float value) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0f, 1.0f) * 255.0f));
}

// BITMAPINFOHEADER (height doubled for the mask), BGRA rows bottom-up, then the 1-bpp AND mask.
std::string IconImage(const Image& image) {
    const int n = image.size;
    const int maskStride = (n + 31) / 32 * 4;
    const std::uint32_t pixelBytes = static_cast<std::uint32_t>(n * n * 4);
    const std::uint32_t maskBytes = static_cast<std::uint32_t>(maskStride * n);

    std::string out;
    Put32(out, 40);
    Put32(out, static_cast<std::uint32_t>(n));
    Put32(out, static_cast<std::uint32_t>(n * 2));
    Put16(out, 1);
    Put16(out, 32);
    Put32(out, 0); // BI_RGB
    Put32(out, pixelBytes + maskBytes);
    Put32(out, 0);
    Put32(out, 0);
    Put32(out, 0);
    Put32(out, 0);

    std::vector<std::uint8_t> mask(maskBytes, 0);
    for (int row = n - 1; row >= 0; --row) {
        const int maskRow = n - 1 - row;
        for (int col = 0; col < n; ++col) {
            const int i = row * n + col;
            const float a = image.a[i];
            const std::uint8_t alpha = ToByte(a);
            // Stored straight, not premultiplied, as Windows expects of icon pixels.
            const float unmul = a > 0.0f ? 1.0f / a : 0.0f;
            out.push_back(static_cast<char>(alpha ? ToByte(image.b[i] * unmul) : 0));
            out.push_back(static_cast<char>(alpha ? ToByte(image.g[i] * unmul) : 0));
            out.push_back(static_cast<char>(alpha ? ToByte(image.r[i] * unmul) : 0));
            out.push_back(static_cast<char>(alpha));
            if (alpha == 0) {
                mask[maskRow * maskStride + col / 8] |= static_cast<std::uint8_t>(0x80 >> (col % 8));
            }
        }
    }
    out.append(mask.begin(), mask.end());
    return out;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_icon OUTPUT.ico\n");
        return 2;
    }
    const int sizes[] = {16, 20, 24, 32, 40, 48, 64, 96, 128, 256};
    const unsigned count = sizeof sizes / sizeof sizes[0];

    std::vector<std::string> images;
    for (int size : sizes) {
        images.push_back(IconImage(DrawCamera(size)));
    }

    std::string file;
    Put16(file, 0);
    Put16(file, 1); // icon
    Put16(file, count);
    std::uint32_t offset = 6 + 16 * count;
    for (unsigned i = 0; i < count; ++i) {
        const int size = sizes[i];
        // A size byte of 0 stands for 256.
        file.push_back(static_cast<char>(size >= 256 ? 0 : size));
        file.push_back(static_cast<char>(size >= 256 ? 0 : size));
        file.push_back(0); // no palette
        file.push_back(0);
        Put16(file, 1);
        Put16(file, 32);
        Put32(file, static_cast<std::uint32_t>(images[i].size()));
        Put32(file, offset);
        offset += static_cast<std::uint32_t>(images[i].size());
    }
    for (const std::string& image : images) {
        file += image;
    }

    std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
    out.write(file.data(), static_cast<std::streamsize>(file.size()));
    out.close();
    if (!out) {
        std::fprintf(stderr, "make_icon: cannot write %s\n", argv[1]);
        return 1;
    }
    return 0;
}
