// An open file that closes itself.
#pragma once

#include <utility>

#include <unistd.h>

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int opened) : number(opened) {}
    Descriptor(Descriptor &&other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }
    ~Descriptor() { close(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    bool is_open() const { return number >= 0; }
    int get() const { return number; }
    void close()
    {
        if (is_open())
            ::close(std::exchange(number, -1));
    }

  private:
    int number = -1;
};
