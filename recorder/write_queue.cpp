#include "recorder/write_queue.h"

#include <sys/eventfd.h>

#include "recorder/media_writer.h"

WriteQueue::WriteQueue(const std::string& path)
    : path_(path), failed_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), thread_([this] { Run(); })
{
}

WriteQueue::~WriteQueue()
{
    try {
        Finish(milliseconds(0));
    } catch (...) { // somebody's earlier failure is on its way to the user already
    }
}

void WriteQueue::Push(StoredFrame frame)
{
    const std::lock_guard guard(lock_);
    if (waitForKeyFrame_ && frame.kind != kKeyFrame) {
        dropped_++;
        return;
    }
    waitForKeyFrame_ = queuedBytes_ + frame.payload.size() > kQueueBytes;
    if (waitForKeyFrame_) {
        dropped_++;
        return;
    }
    queuedBytes_ += frame.payload.size();
    queue_.push_back(std::move(frame));
    changed_.notify_all();
}

void WriteQueue::Finish(milliseconds limit)
{
    if (!thread_.joinable())
        return;
    std::unique_lock guard(lock_);
    closing_ = true;
    changed_.notify_all();
    if (!changed_.wait_for(guard, limit, [this] { return done_; }))
        giveUp_ = true;
    guard.unlock();
    thread_.join();
    if (error_)
        std::rethrow_exception(error_);
}

// The next frame; false when there will be none.
bool WriteQueue::Take(StoredFrame& frame)
{
    std::unique_lock guard(lock_);
    changed_.wait(guard, [this] { return closing_ || !queue_.empty(); });
    if (queue_.empty())
        return false;
    frame = std::move(queue_.front());
    queue_.pop_front();
    queuedBytes_ -= frame.payload.size();
    return true;
}

void WriteQueue::Run()
{
    std::exception_ptr error;
    MediaWriter writer(path_, giveUp_);
    try {
        StoredFrame frame{};
        while (Take(frame))
            writer.Write(std::move(frame));
        writer.Close();
    } catch (...) {
        error = std::current_exception();
        (void)eventfd_write(failed_.get(), 1); // cannot overflow: written once
    }
    const std::lock_guard guard(lock_);
    files_ = writer.files();
    error_ = error;
    done_ = true;
    changed_.notify_all();
}
