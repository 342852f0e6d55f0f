#include "channel.h"

#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <sys/uio.h>

namespace {

constexpr size_t most_descriptors = 3;
constexpr size_t most_text = 4096 + 512; // a path and some words

struct Head {
    Word word;
    std::int64_t number;
};

union Control {
    char space[CMSG_SPACE(most_descriptors * sizeof(int))];
    cmsghdr aligned;
};

msghdr envelope(iovec (&parts)[2], Control &control)
{
    msghdr header{};
    header.msg_iov = parts;
    header.msg_iovlen = 2;
    header.msg_control = control.space;
    header.msg_controllen = sizeof control.space;
    return header;
}

void take_descriptors(msghdr &header, Message &message)
{
    const cmsghdr *control = CMSG_FIRSTHDR(&header);
    if (!control || control->cmsg_type != SCM_RIGHTS)
        return;
    for (size_t at = 0; at < control->cmsg_len - CMSG_LEN(0); at += sizeof(int)) {
        int number = -1;
        std::memcpy(&number, CMSG_DATA(control) + at, sizeof number);
        message.descriptors.emplace_back(number);
    }
}

} // namespace

bool make_channel(Descriptor (&ends)[2])
{
    int numbers[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, numbers) != 0)
        return false;
    ends[0] = Descriptor(numbers[0]);
    ends[1] = Descriptor(numbers[1]);
    return true;
}

bool send_message(const Descriptor &channel, const Message &message)
{
    Head head{.word = message.word, .number = message.number};
    std::string text = message.text.substr(0, most_text);
    iovec parts[2] = {{&head, sizeof head}, {text.data(), text.size()}};
    Control control{};
    msghdr header = envelope(parts, control);
    const size_t size = message.descriptors.size() * sizeof(int);
    header.msg_controllen = size ? CMSG_SPACE(size) : 0;
    if (size) {
        cmsghdr *first = CMSG_FIRSTHDR(&header);
        first->cmsg_level = SOL_SOCKET;
        first->cmsg_type = SCM_RIGHTS;
        first->cmsg_len = CMSG_LEN(size);
        for (size_t at = 0; at < message.descriptors.size(); at++) {
            const int number = message.descriptors[at].get();
            std::memcpy(CMSG_DATA(first) + at * sizeof(int), &number, sizeof number);
        }
    }
    return ::sendmsg(channel.get(), &header, MSG_NOSIGNAL) >= 0;
}

bool receive_message(const Descriptor &channel, Message &message)
{
    Head head{};
    std::string text(most_text, '\0');
    iovec parts[2] = {{&head, sizeof head}, {text.data(), text.size()}};
    Control control{};
    msghdr header = envelope(parts, control);
    ssize_t got = 0;
    do
        got = ::recvmsg(channel.get(), &header, MSG_CMSG_CLOEXEC);
    while (got < 0 && errno == EINTR);
    if (got < static_cast<ssize_t>(sizeof head))
        return false;
    text.resize(static_cast<size_t>(got) - sizeof head);
    message = {.word = head.word, .number = head.number, .text = std::move(text)};
    take_descriptors(header, message);
    return true;
}
