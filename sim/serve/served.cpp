// SPDX-License-Identifier: MIT
//
// The calls on a character device, from the kernel's question to its answer. A request's record and lists are
// fetched by asking the kernel to ask again, with more of the program's memory.
#include "sim/serve/served.h"

#include "sim/calls/faults.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/uio.h>

namespace sim
{

namespace
{

// An open node, from open to the last close.
struct OpenNode {
    Node node;
    uint32_t process; ///< that opened it: whose buffers go back when it is closed
};

// A pointer from the 64 bits in which the kernel and libfuse keep it; the byte order is little-endian.
void *PointerIn(const uint64_t &bits)
{
    void *pointer = nullptr;
    memcpy(&pointer, &bits, sizeof(void *));
    return pointer;
}

OpenNode &OpenOf(const fuse_file_info *file)
{
    return *static_cast<OpenNode *>(PointerIn(file->fh));
}

const Device &DeviceOf(fuse_req_t asked)
{
    return *static_cast<const Served *>(fuse_req_userdata(asked))->device;
}

void NoteReady(void *served)
{
    static_cast<Served *>(served)->isReady = true;
}

void OnOpen(fuse_req_t asked, fuse_file_info *file)
{
    const Device &device = DeviceOf(asked);
    Event event(Call::Open, device.path);
    event.process = static_cast<uint32_t>(fuse_req_ctx(asked)->pid);
    event.text = (file->flags & O_ACCMODE) == O_RDONLY ? "for reading" : "";
    if (InjectFault(event)) {
        Finish(event);
        fuse_reply_err(asked, event.error);
        return;
    }
    auto *open = new OpenNode{{&device, 0, false, ""}, event.process};
    snprintf(open->node.path, sizeof(open->node.path), "%s", device.path);
    file->fh = reinterpret_cast<uintptr_t>(open);
    Finish(event);
    if (fuse_reply_open(asked, file) != 0) // the program is gone, and nothing will be closed
        delete open;
}

// After the last close; the kernel asks for no result.
void OnRelease(fuse_req_t asked, fuse_file_info *file)
{
    const OpenNode *open = &OpenOf(file);
    const Driver &driver = *open->node.device->driver;
    Event event(Call::Close, open->node.device->path);
    event.process = open->process;
    if (driver.close != nullptr)
        driver.close(open->process);
    Finish(event);
    delete open;
    fuse_reply_err(asked, 0);
}

// The board's devices know requests alone.
void RefuseBytes(Call call, fuse_req_t asked, const fuse_file_info *file)
{
    const OpenNode &open = OpenOf(file);
    Event event(call, open.node.device->path);
    event.process = open.process;
    if (!InjectFault(event))
        Fail(event, EINVAL);
    Finish(event);
    fuse_reply_err(asked, event.error);
}

void OnRead(fuse_req_t asked, size_t, off_t, fuse_file_info *file)
{
    RefuseBytes(Call::Read, asked, file);
}

void OnWrite(fuse_req_t asked, const char *, size_t, off_t, fuse_file_info *file)
{
    RefuseBytes(Call::Write, asked, file);
}

// ---- Requests

constexpr size_t kParts = 3;

// The parts of a request that move one way, as the kernel wants them listed.
struct Parcel {
    iovec places[kParts];
    Part *parts[kParts];
    size_t count = 0;
    size_t size = 0;

    Parcel(Request &request, bool Part::*isMoved)
    {
        for (Part *part : {&request.record, &request.lists[0], &request.lists[1]}) {
            if (!(part->*isMoved) || part->address == 0 || part->size == 0)
                continue;
            places[count] = {PointerIn(part->address), part->size};
            parts[count++] = part;
            size += part->size;
        }
    }
};

void Answer(fuse_req_t asked, const Event &event, const Parcel &stored)
{
    char bytes[kParts * sizeof(Part::bytes)];
    size_t length = 0;
    if (event.result < 0) {
        fuse_reply_err(asked, event.error);
        return;
    }
    for (size_t i = 0; i < stored.count; ++i) {
        memcpy(bytes + length, stored.parts[i]->bytes, stored.parts[i]->size);
        length += stored.parts[i]->size;
    }
    fuse_reply_ioctl(asked, static_cast<int>(event.result), bytes, length);
}

void OnRequest(fuse_req_t asked, int number, void *argument, fuse_file_info *file, unsigned flags,
               const void *fetched, size_t fetchedSize, size_t storedSize)
{
    OpenNode &open = OpenOf(file);
    const Device &device = *open.node.device;
    const uint32_t width = (flags & FUSE_IOCTL_COMPAT) != 0 ? 4 : sizeof(void *);
    Request request(static_cast<unsigned>(number), reinterpret_cast<uintptr_t>(argument), width, open.process,
                    open.node);
    const auto *bytes = static_cast<const uint8_t *>(fetched);
    FindRecord(device, request);
    // The record comes first, and tells where the lists are.
    if (request.record.isFetched && fetchedSize >= request.record.size) {
        memcpy(request.record.bytes, bytes, request.record.size);
        FindLists(device, request);
    }
    const Parcel wanted(request, &Part::isFetched);
    const Parcel stored(request, &Part::isStored);
    if (fetchedSize < wanted.size || storedSize < stored.size) {
        fuse_reply_ioctl_retry(asked, wanted.places, wanted.count, stored.places, stored.count);
        return;
    }
    for (size_t i = 0; i < wanted.count; ++i) {
        memcpy(wanted.parts[i]->bytes, bytes, wanted.parts[i]->size);
        bytes += wanted.parts[i]->size;
    }
    Event event(Call::Ioctl, device.path);
    event.process = open.process;
    Serve(device, request, event);
    Finish(event);
    Answer(asked, event, stored);
}

} // namespace

constinit const cuse_lowlevel_ops kServedCalls = {
    .init = nullptr,
    .init_done = NoteReady,
    .destroy = nullptr,
    .open = OnOpen,
    .read = OnRead,
    .write = OnWrite,
    .flush = nullptr,
    .release = OnRelease,
    .fsync = nullptr,
    .ioctl = OnRequest,
    .poll = nullptr,
};

bool IsServedFile(const Device &device)
{
    return device.driver == &kCslDriver;
}

} // namespace sim
