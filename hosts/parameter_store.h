// The camera's settings: applies changes to the parameter block, starts it from defaults and keeps what
// was changed in a state file when there is one.
//
// Other processes read the block without a lock, so each field is written with one store of its width.
// Thread-safe: the parameter queue's thread applies changes while players report what their files give.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "camera/parameter_block_layout.h"
#include "hosts/motors.h"
#include "hosts/parameter_fields_table.h"
#include "hosts/parameter_state.h"
#include "hosts/stream_facts.h"

// Presets are kept under this and their number, as the text of their position.
inline constexpr std::string_view kPresetMembers = "preset/";

// Called with the store's lock held, so in the order of the changes; must not call the store.
struct ParameterWatch {
    // What a stream is set to, after each change.
    std::function<void(size_t stream, const StreamFacts& settings)> onStream;
    // Address, mask or gateway of eth0 (kFieldAddress to kFieldGateway), in network order.
    std::function<void(uint32_t field, uint32_t ulAddress)> onAddress;
    // Whether the head has moved since the start or the last factory default; after each PTZ action.
    std::function<void(bool hasMoved)> onHead = {};
};

class ParameterStore {
  public:
    // `block` has kSysConfigBytes, all zero. Writes the defaults, then what the state file holds. No
    // file is kept when the name is empty; then the store starts with what an earlier one kept. Throws
    // std::runtime_error when the file cannot be read.
    ParameterStore(uint8_t* block, std::string stateFile, const ParameterChanges& earlier = {});

    // Applies a change as a parameter message carries it. Returns 0; -1, with a log line and nothing
    // changed, when the value does not suit the field.
    int32_t Apply(uint32_t field, std::span<const uint8_t> value);

    // What the file of a stream gives: the defaults of the stream's settings, which hold where nothing
    // else was set. Not kept in the state file.
    void SetStream(size_t stream, const StreamFacts& facts);

    // All that was changed, for the store of the camera's next life.
    ParameterChanges Changes();

    // The head that PTZ actions steer.
    Motors& motors() { return motors_; }

    // Watches all further changes; the addresses that were kept from an earlier life come at once.
    void Watch(ParameterWatch watch);

  private:
    int32_t Refuse(const FieldPlace& place, const char* problem, size_t width);
    int32_t ApplyNumber(const FieldPlace& place, std::span<const uint8_t> value);
    int32_t ApplyText(const FieldPlace& place, std::span<const uint8_t> value);
    int32_t ApplyTour(const FieldPlace& place, std::span<const uint8_t> value);
    int32_t ApplyAccount(const FieldPlace& place, std::span<const uint8_t> value);
    int32_t ApplyEvent(const FieldPlace& place, std::span<const uint8_t> value);
    int32_t ApplyPtz(const FieldPlace& place, std::span<const uint8_t> value);
    bool SetPreset(uint8_t preset, int64_t nowMs);
    bool ClearPreset(uint8_t preset);
    bool StartTour(uint8_t tour, int64_t nowMs);
    void RestoreDefaults();
    void TellHead();
    int32_t ApplyField(const FieldPlace& place, std::span<const uint8_t> value);
    void TellStream(size_t stream);
    void TellAddress(uint32_t field, const ParameterBytes& value);
    void Keep(const std::string& name, ParameterValue value);
    void WriteDefaults();
    void Load(const ParameterChanges& changes);
    bool LoadField(const std::string& name, const ParameterValue& value);
    bool LoadPreset(const std::string& name, const ParameterValue& value);
    void Save();
    void LoadUsers(const ParameterValue& value);

    uint8_t* const block_;
    const std::string stateFile_;
    Motors motors_;
    std::mutex mutex_; // guards the block's writing and all below
    ParameterChanges changes_;
    std::array<std::optional<StreamFacts>, kVideoStreams> played_;
    ParameterWatch watch_;
    bool loading_ = false;
};
