#include "Host/World.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <mutex>
#include <new>
#include <set>
#include <stdexcept>
#include <string>

namespace Tessaloom::BilateralBlur::Host {

namespace {

constexpr std::byte kPaddingByte{0xA5};

struct LivingWorlds {
    std::mutex mutex;
    std::set<const PF_LayerDef*> records;
};

LivingWorlds& livingWorlds() {
    // Never destroyed: worlds with static storage may outlive any static of this file.
    static LivingWorlds& kLiving = *new LivingWorlds;
    return kLiving;
}

int rowbytesFor(int width, int height, int pixelSize) {
    if (width < 0 || height < 0)
        throw std::length_error("a world can't measure " + std::to_string(width) + " by " +
                                std::to_string(height) + " pixels");
    const std::int64_t bytes = static_cast<std::int64_t>(width) * pixelSize + 1;
    const std::int64_t aligned = (bytes + World::kAlignment - 1) / World::kAlignment * World::kAlignment;
    if (aligned > std::numeric_limits<std::int32_t>::max())
        throw std::length_error("a world of " + std::to_string(width) + " pixels a row is too wide");
    return static_cast<int>(aligned);
}

} // namespace

int bytesPerPixel(std::int32_t format) {
    switch (format) {
    case PF_PixelFormat_ARGB32:
        return sizeof(PF_Pixel8);
    case PF_PixelFormat_ARGB64:
        return sizeof(PF_Pixel16);
    case PF_PixelFormat_ARGB128:
        return sizeof(PF_PixelFloat);
    default:
        return 0;
    }
}

void World::Free::operator()(std::byte* pixels) const {
    ::operator delete[](pixels, std::align_val_t{kAlignment});
}

World::World(int width, int height, std::int32_t format) : PF_LayerDef{width, height, 0}, mFormat(format) {
    if (bytesPerPixel(format) == 0)
        throw std::invalid_argument("a world holds ARGB of 8 bits, 16 bits or floats");
    rowbytes = rowbytesFor(width, height, bytesPerPixel(format));
    // A row's worth for an empty world too, so that its base address isn't null.
    const std::size_t size = static_cast<std::size_t>(rowbytes) * std::max(height, 1);
    mPixels.reset(static_cast<std::byte*>(::operator new[](size, std::align_val_t{kAlignment})));
    std::memset(mPixels.get(), static_cast<int>(kPaddingByte), size);
    clear();
    const std::lock_guard lock(livingWorlds().mutex);
    livingWorlds().records.insert(this);
}

World::World(World&& other) : World(0, 0) {
    swap(other);
}

World& World::operator=(World&& other) {
    World empty(0, 0);
    swap(other);
    other.swap(empty);
    return *this;
}

World::~World() {
    const std::lock_guard lock(livingWorlds().mutex);
    livingWorlds().records.erase(this);
}

World* World::of(const PF_LayerDef* record) {
    const std::lock_guard lock(livingWorlds().mutex);
    const auto found = livingWorlds().records.find(record);
    return found == livingWorlds().records.end() ? nullptr
                                                 : static_cast<World*>(const_cast<PF_LayerDef*>(*found));
}

std::size_t World::rowLength() const {
    return static_cast<std::size_t>(width) * bytesPerPixel(mFormat);
}

bool World::sameShape(const World& other) const {
    return width == other.width && height == other.height && mFormat == other.mFormat;
}

void World::clear() {
    for (int y = 0; y < height; ++y)
        std::memset(row<std::byte>(y), 0, rowLength());
}

void World::swap(World& other) {
    std::swap(static_cast<PF_LayerDef&>(*this), static_cast<PF_LayerDef&>(other));
    std::swap(mFormat, other.mFormat);
    std::swap(mPixels, other.mPixels);
}

bool World::paddingIntact() const {
    for (int y = 0; y < height; ++y) {
        const std::byte* first = row<std::byte>(y) + rowLength();
        const std::byte* last = row<std::byte>(y) + rowbytes;
        if (std::any_of(first, last, [](std::byte byte) { return byte != kPaddingByte; }))
            return false;
    }
    return true;
}

} // namespace Tessaloom::BilateralBlur::Host
