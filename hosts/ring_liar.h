// An encoder host that lies, for torturing readers: beside the records of a stream it writes into the same
// ring, for a given time and by turns without a rest and at the pace of readers, whatever a broken host could
// (records of any length and serial number, published before they stand, without magic, or changed
// afterwards, marks of wraps and pauses, returns to earlier places), and names senseless places to readers.
// Then it tells the truth again.
//
// The lies come from the seed alone. Audio records are at most 8191 bytes: they are sent in such small
// messages that a few large ones would hold up a stream for longer than the lies last.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <stop_token>
#include <string>
#include <thread>

#include "hosts/ring_writer.h"
#include "media/ring_layout.h"

struct LiePlan {
    std::chrono::duration<double> time;
    uint32_t ulSeed;
};
// Reads "SECONDS,SEED"; nothing when it is something else or the time is not from 0 to a day.
std::optional<LiePlan> LiePlanOfText(const std::string& text);

class RingLiar {
  public:
    // Lies into the writer's ring from now on. At the end of the time the ring is cleared, its next record
    // lies at offset 0 with a serial number above those of all lies, and `onTruth` is called. An earlier end
    // of this object ends the lies, and nothing else.
    RingLiar(RingWriter* ring, const LiePlan& plan, std::function<void()> onTruth);

    // Where a reader is sent that asks for this place. Any thread.
    uint32_t Place(uint32_t truth);

  private:
    void Run(const std::stop_token& stop, std::chrono::duration<double> time);
    void Lie(uint8_t* ring, uint32_t ringBytes);
    void PutRecord(uint8_t* ring, uint32_t ringBytes);
    void PutMark(uint8_t* ring, uint32_t flag);
    void Spoil(uint8_t* ring, uint32_t ringBytes);
    uint32_t Random(uint32_t below);
    DataInfo Header();

    RingWriter* const ring_;
    const std::function<void()> onTruth_;
    std::atomic<bool> isLying_{true};
    std::minstd_rand random_; // its thread's own, like all below
    uint32_t place_ = 0;      // of its next record
    uint32_t serial_ = 1;
    uint32_t highestSerial_ = 1;
    std::atomic<uint32_t> named_{0}; // to readers that ask
    std::jthread thread_;            // ends first
};
