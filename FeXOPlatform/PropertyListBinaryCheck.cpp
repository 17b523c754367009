#include <FeXOPlatform/PropertyListBinaryCheck.hpp>

#include <cstdint>
#include <vector>

namespace fexo {

namespace {

constexpr std::size_t headerSize = 8;
constexpr std::size_t trailerSize = 32;

std::uint64_t readBigEndian(std::string_view bytes, std::uint64_t offset, std::size_t width)
{
    std::uint64_t value = 0;
    for (std::size_t k = 0; k < width; ++k) value = (value << 8) | static_cast<unsigned char>(bytes[offset + k]);
    return value;
}

void appendBigEndian(std::string& out, std::uint64_t value, std::size_t width)
{
    for (std::size_t k = width; k-- > 0;) out.push_back(static_cast<char>((value >> (8 * k)) & 0xFF));
}

// The layout that the trailer describes, and where each object's payload lies.
class Layout {
public:
    bool read(std::string_view bytes)
    {
        bytes_ = bytes;
        if (bytes.size() < headerSize + trailerSize) return false;
        trailer_ = bytes.size() - trailerSize;
        offsetSize_ = static_cast<unsigned char>(bytes[trailer_ + 6]);
        refSize_ = static_cast<unsigned char>(bytes[trailer_ + 7]);
        count_ = readBigEndian(bytes, trailer_ + 8, 8);
        top_ = readBigEndian(bytes, trailer_ + 16, 8);
        table_ = readBigEndian(bytes, trailer_ + 24, 8);
        if (offsetSize_ < 1 || offsetSize_ > 8 || refSize_ < 1 || refSize_ > 8 || table_ > trailer_ ||
            count_ > (trailer_ - table_) / offsetSize_ || top_ >= count_)
            return false;
        // Every object lies between the header and the offset table, as writers lay them out.
        // One that lies beyond would change meaning in the copy made for libplist, where moved
        // strings follow the objects.
        for (std::uint64_t object = 0; object < count_; ++object) {
            const std::uint64_t at = offset(object);
            if (at < headerSize || at >= table_) return false;
        }
        return true;
    }

    std::uint64_t count() const { return count_; }
    std::uint64_t top() const { return top_; }
    std::uint64_t offset(std::uint64_t object) const
    {
        return readBigEndian(bytes_, table_ + object * offsetSize_, offsetSize_);
    }
    std::size_t trailer() const { return trailer_; }

    // An object's marker byte, its element count and where its payload starts; false when the
    // object lies outside the list (libplist refuses it when it reaches it).
    bool object(std::uint64_t object, unsigned char& marker, std::uint64_t& size, std::uint64_t& payload) const
    {
        const std::uint64_t at = offset(object);
        if (at < headerSize || at >= trailer_) return false;
        marker = static_cast<unsigned char>(bytes_[at]);
        size = marker & 0x0F;
        payload = at + 1;
        if (size != 0x0F) return true;
        if (payload >= trailer_) return false;
        const auto sizeMarker = static_cast<unsigned char>(bytes_[payload]);
        const std::size_t width = std::size_t{1} << (sizeMarker & 0x0F);
        if ((sizeMarker & 0xF0) != 0x10 || width > 8 || trailer_ - payload - 1 < width) return false;
        size = readBigEndian(bytes_, payload + 1, width);
        payload += 1 + width;
        return true;
    }

    // The object references of an array, set or dictionary (keys first); none for other kinds.
    bool references(std::uint64_t object, std::uint64_t& first, std::uint64_t& number) const
    {
        unsigned char marker = 0;
        std::uint64_t size = 0;
        number = 0;
        if (!this->object(object, marker, size, first)) return true;
        const unsigned kind = marker >> 4;
        if (kind != 0xA && kind != 0xC && kind != 0xD) return true;
        if (kind == 0xD && size > UINT64_MAX / 2) return false;
        number = kind == 0xD ? 2 * size : size;
        return number <= (trailer_ - first) / refSize_;
    }

    std::uint64_t reference(std::uint64_t first, std::uint64_t index) const
    {
        return readBigEndian(bytes_, first + index * refSize_, refSize_);
    }

    // Whether a string object (either form) holds U+0000, and whether it is in the one-byte form.
    bool stringWithNul(std::uint64_t object, bool& oneByte) const
    {
        unsigned char marker = 0;
        std::uint64_t size = 0;
        std::uint64_t payload = 0;
        if (!this->object(object, marker, size, payload)) return false;
        const unsigned kind = marker >> 4;
        oneByte = kind == 0x5;
        const std::uint64_t width = oneByte ? 1 : 2;
        if ((kind != 0x5 && kind != 0x6) || size > (trailer_ - payload) / width) return false;
        for (std::uint64_t k = 0; k < size; ++k) {
            if (bytes_[payload + k * width] == 0 && (oneByte || bytes_[payload + 2 * k + 1] == 0)) return true;
        }
        return false;
    }

    std::string_view bytes() const { return bytes_; }
    std::size_t tableOffset() const { return table_; }

private:
    std::string_view bytes_;
    std::size_t trailer_ = 0;
    std::size_t offsetSize_ = 0;
    std::size_t refSize_ = 0;
    std::uint64_t count_ = 0;
    std::uint64_t top_ = 0;
    std::uint64_t table_ = 0;
};

// The number of nodes of the tree below `top` with shared objects copied out, walked without
// recursion; false on a cycle, when the count passes `limit` or the nesting `maximumDepth`.
bool expandedSizeWithin(const Layout& layout, std::uint64_t limit, std::size_t maximumDepth)
{
    struct Frame {
        std::uint64_t object;
        std::uint64_t first;
        std::uint64_t number;
        std::uint64_t next;
        std::uint64_t nodes;
    };
    std::vector<std::uint64_t> expanded(layout.count(), 0); // 0: not yet counted
    std::vector<bool> open(layout.count(), false);
    std::vector<Frame> path;
    const auto enter = [&](std::uint64_t object) {
        Frame frame{object, 0, 0, 0, 1};
        if (!layout.references(object, frame.first, frame.number) || path.size() > maximumDepth) return false;
        open[object] = true;
        path.push_back(frame);
        return true;
    };
    if (!enter(layout.top())) return false;
    while (!path.empty()) {
        Frame& frame = path.back();
        if (frame.next == frame.number) {
            expanded[frame.object] = frame.nodes;
            open[frame.object] = false;
            const std::uint64_t nodes = frame.nodes;
            path.pop_back();
            if (!path.empty() && (path.back().nodes += nodes) > limit) return false;
            continue;
        }
        const std::uint64_t child = layout.reference(frame.first, frame.next++);
        if (child >= layout.count() || open[child]) return false;
        if (expanded[child] != 0) {
            if ((frame.nodes += expanded[child]) > limit) return false;
        } else if (!enter(child)) {
            return false;
        }
    }
    return true;
}

} // namespace

std::optional<std::string> checkBinaryPropertyList(std::string_view bytes, std::size_t maximumDepth)
{
    Layout layout;
    if (!layout.read(bytes)) return std::nullopt;
    if (!expandedSizeWithin(layout, bytes.size(), maximumDepth)) return std::nullopt;

    std::vector<bool> isKey(layout.count(), false);
    for (std::uint64_t object = 0; object < layout.count(); ++object) {
        unsigned char marker = 0;
        std::uint64_t size = 0;
        std::uint64_t payload = 0;
        if (!layout.object(object, marker, size, payload) || (marker >> 4) != 0xD) continue;
        std::uint64_t first = 0;
        std::uint64_t number = 0;
        if (!layout.references(object, first, number)) return std::nullopt;
        for (std::uint64_t k = 0; k < number / 2; ++k) {
            const std::uint64_t key = layout.reference(first, k);
            if (key < layout.count()) isKey[key] = true;
        }
    }

    std::vector<std::uint64_t> moved;
    for (std::uint64_t object = 0; object < layout.count(); ++object) {
        bool oneByte = false;
        if (!layout.stringWithNul(object, oneByte)) continue;
        if (isKey[object]) return std::nullopt;
        if (oneByte) moved.push_back(object);
    }
    if (moved.empty()) return std::string(bytes);

    // Everything before the trailer stays where it was; the moved strings follow it, then a new
    // offset table with eight-byte offsets, then the trailer pointing at that table.
    std::string out(bytes.substr(0, layout.trailer()));
    std::vector<std::uint64_t> offsets(layout.count());
    for (std::uint64_t object = 0; object < layout.count(); ++object) offsets[object] = layout.offset(object);
    for (const std::uint64_t object : moved) {
        unsigned char marker = 0;
        std::uint64_t size = 0;
        std::uint64_t payload = 0;
        layout.object(object, marker, size, payload);
        offsets[object] = out.size();
        if (size < 0x0F) {
            out.push_back(static_cast<char>(0x60 | size));
        } else {
            out.push_back(static_cast<char>(0x6F));
            out.push_back(static_cast<char>(0x13));
            appendBigEndian(out, size, 8);
        }
        for (std::uint64_t k = 0; k < size; ++k) {
            if (static_cast<unsigned char>(bytes[payload + k]) >= 0x80) return std::nullopt; // not one-byte text
            out.push_back('\0');
            out.push_back(bytes[payload + k]);
        }
    }
    const std::uint64_t table = out.size();
    for (const std::uint64_t offset : offsets) appendBigEndian(out, offset, 8);
    std::string trailer(bytes.substr(layout.trailer()));
    trailer[6] = 8;
    out += trailer.substr(0, 24);
    appendBigEndian(out, table, 8);
    return out;
}

} // namespace fexo
