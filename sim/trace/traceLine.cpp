// SPDX-License-Identifier: MIT
//
// Lines and names of the trace.
#include "sim/trace/traceLine.h"

#include "sim/board/camera.h"
#include "sim/board/host.h"

#include <stdarg.h>
#include <stdio.h>

namespace sim
{

void Line::Add(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text_ + length_, kRoom - length_, format, arguments);
    va_end(arguments);
    length_ += length < 0 ? 0U : static_cast<size_t>(length);
    length_ = length_ < kRoom ? length_ : kRoom - 1;
}

void Line::Quote(const char *words)
{
    Add("\"");
    for (; *words != '\0'; ++words) {
        const auto letter = static_cast<unsigned char>(*words);
        if (letter == '"' || letter == '\\')
            Add("\\%c", letter);
        else if (letter < 0x20)
            Add("\\u%04x", letter);
        else
            Add("%c", letter);
    }
    Add("\"");
}

void Line::Write(int fd)
{
    text_[length_++] = '\n';
    host::WriteAll(fd, text_, length_);
}

RegisterImage ImageOf(const Event &event)
{
    RegisterImage image;
    for (uint32_t i = 0; i < event.count; ++i) {
        image.before[event.reg[i]] = event.before[i];
        image.after[event.reg[i]] = event.after[i];
        image.touched[event.reg[i]] = true;
    }
    return image;
}

bool IsTouched(const RegisterImage &image, const Field &field)
{
    for (int i = 0; i < field.registers; ++i)
        if (!image.touched[field.reg + i])
            return false;
    return true;
}

double Ms(uint64_t ns)
{
    return static_cast<double>(ns) / 1e6;
}

const char *ErrorName(int error)
{
    const char *name = strerrorname_np(error);
    return name != nullptr ? name : "unknown error";
}

const char *PinName(uint32_t pin)
{
    const Signal *signal = FindSignal(pin);
    return signal != nullptr ? signal->meaning : "a pin without a name";
}

const char *LevelName(uint32_t pin, uint32_t level)
{
    constexpr const char *kLevels[] = {"low", "high"};
    const Signal *signal = FindSignal(pin);
    return (signal != nullptr ? signal->told : kLevels)[level != 0 ? 1 : 0];
}

} // namespace sim
