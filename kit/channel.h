// Messages between the processes of a view and the one that made it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lib.h"

enum class Word : char {
    sentence,
    failure,
    layer,
    frame,
    ready,
    take,
    broken,
    foreign,
    ask,
    ended
};

struct Message {
    Word word;
    std::int64_t number = 0;
    std::string text = {};
    std::vector<Descriptor> descriptors = {}; // at most three
};

// Makes both ends of a channel; false with errno set.
bool make_channel(Descriptor (&ends)[2]);

// Send a message; wait for one. False when the other side has gone.
bool send_message(const Descriptor &channel, const Message &message);
bool receive_message(const Descriptor &channel, Message &message);
