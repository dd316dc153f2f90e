#include "Program/Events.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace Tessaloom::BilateralBlur::Program {

namespace {

struct Header {
    Event::Kind kind;
    std::int32_t job;
    std::uint32_t textSize;
};

} // namespace

void EventWriter::send(const Event& event) {
    const Header header{event.kind, event.job, static_cast<std::uint32_t>(event.text.size())};
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
    bytes += event.text;
    // Events longer than the pipe's atomic size must not mix.
    const std::lock_guard lock(mMutex);
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = write(mPipe, bytes.data() + sent, bytes.size() - sent);
        if (count < 0 && errno != EINTR)
            return;
        sent += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

bool EventReader::receive() {
    char bytes[4096];
    const ssize_t count = read(mPipe, bytes, sizeof bytes);
    if (count > 0)
        mBytes.append(bytes, static_cast<std::size_t>(count));
    return count > 0 || (count < 0 && errno == EINTR);
}

std::optional<Event> EventReader::next() {
    Header header;
    if (mBytes.size() < sizeof header)
        return std::nullopt;
    std::memcpy(&header, mBytes.data(), sizeof header);
    const std::size_t size = sizeof header + header.textSize;
    if (mBytes.size() < size)
        return std::nullopt;
    Event event{header.kind, header.job, mBytes.substr(sizeof header, header.textSize)};
    mBytes.erase(0, size);
    return event;
}

} // namespace Tessaloom::BilateralBlur::Program
