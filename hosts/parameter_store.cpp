#include "hosts/parameter_store.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>

#include "common/little_endian.h"
#include "common/log.h"
#include "hosts/parameter_defaults.h"
#include "hosts/tour_entries.h"

namespace {

constexpr char kUsersMember[] = "users"; // the list of users as it lies in the block
uint32_t LoadNumber(std::span<const uint8_t> value)
{
    uint32_t number = 0;
    for (size_t i = value.size(); i-- > 0;)
        number = number << 8 | value[i];
    return number;
}

// The file may have been edited by hand: a value is used only where its kind belongs.
bool SuitsField(const ParameterValue& value, const FieldPlace* place)
{
    if (std::holds_alternative<uint32_t>(value))
        return place != nullptr && place->kind == FieldKind::kNumber;
    if (std::holds_alternative<std::string>(value))
        return place != nullptr && place->kind == FieldKind::kText;
    return place == nullptr || place->kind == FieldKind::kBytes || place->kind == FieldKind::kText ||
           place->kind == FieldKind::kTour;
}

// Bytes of a kept value, as a message would carry them. A number that is too wide for its field keeps
// its four bytes, and is refused for that.
ParameterBytes MessageBytes(const ParameterValue& value, const FieldPlace* place)
{
    if (const auto* const bytes = std::get_if<ParameterBytes>(&value))
        return *bytes;
    if (const auto* const text = std::get_if<std::string>(&value))
        return {text->begin(), text->end()};
    const uint32_t number = std::get<uint32_t>(value);
    ParameterBytes bytes(sizeof number);
    StoreLe(bytes.data(), number);
    if (place->usWidth == sizeof number || number >> (8 * place->usWidth) == 0)
        bytes.resize(place->usWidth);
    return bytes;
}

} // namespace

ParameterStore::ParameterStore(uint8_t* block, std::string stateFile, const ParameterChanges& earlier)
    : block_(block), stateFile_(std::move(stateFile))
{
    const std::lock_guard lock(mutex_);
    WriteDefaults();
    Load(stateFile_.empty() ? earlier : LoadParameterState(stateFile_));
}

ParameterChanges ParameterStore::Changes()
{
    const std::lock_guard lock(mutex_);
    return changes_;
}

void ParameterStore::WriteDefaults()
{
    WriteDefaultParameters(block_);
    for (size_t stream = 0; stream < kVideoStreams; ++stream)
        if (played_[stream])
            WriteStreamFacts(block_, stream, *played_[stream]);
}

void ParameterStore::SetStream(size_t stream, const StreamFacts& facts)
{
    const std::lock_guard lock(mutex_);
    played_[stream] = facts;
    ParameterBytes settings(kSysConfigBytes); // readers of the block see no value that does not hold
    WriteStreamFacts(settings.data(), stream, facts);
    for (const FieldPlace& place : FieldPlaces()) {
        const auto kept = changes_.find(std::to_string(place.ulField));
        if (StreamOfField(place.ulField) == stream && kept != changes_.end())
            StoreNumber(settings.data() + place.usBlock, place.ucBlockBytes,
                        std::get<uint32_t>(kept->second));
    }
    WriteStreamFacts(block_, stream, ReadStreamFacts(settings.data(), stream));
    TellStream(stream);
}

void ParameterStore::Watch(ParameterWatch watch)
{
    const std::lock_guard lock(mutex_);
    watch_ = std::move(watch);
    for (const uint32_t field : {kFieldAddress, kFieldNetmask, kFieldGateway})
        if (const auto kept = changes_.find(std::to_string(field)); kept != changes_.end())
            TellAddress(field, std::get<ParameterBytes>(kept->second));
}

void ParameterStore::TellStream(size_t stream)
{
    if (watch_.onStream)
        watch_.onStream(stream, ReadStreamFacts(block_, stream));
}

void ParameterStore::TellAddress(uint32_t field, const ParameterBytes& value)
{
    uint32_t ulAddress = 0;
    memcpy(&ulAddress, value.data(), sizeof ulAddress);
    if (watch_.onAddress)
        watch_.onAddress(field, ulAddress);
}

int32_t ParameterStore::Apply(uint32_t field, std::span<const uint8_t> value)
{
    const std::lock_guard lock(mutex_);
    const FieldPlace* const place = FindFieldPlace(field);
    if (place != nullptr)
        return ApplyField(*place, value);
    LogInfo("parameter %u: %zu bytes kept\n", field, value.size());
    Keep(std::to_string(field), ParameterBytes(value.begin(), value.end()));
    return 0;
}

int32_t ParameterStore::ApplyField(const FieldPlace& place, std::span<const uint8_t> value)
{
    const bool rightWidth =
        place.kind == FieldKind::kText ? value.size() <= place.usWidth : value.size() == place.usWidth;
    if (!rightWidth)
        return Refuse(place, "a value of the wrong width", value.size());
    switch (place.kind) {
    case FieldKind::kNumber:
        return ApplyNumber(place, value);
    case FieldKind::kText:
        return ApplyText(place, value);
    case FieldKind::kTour:
        return ApplyTour(place, value);
    case FieldKind::kAccount:
        return ApplyAccount(place, value);
    case FieldKind::kEvent:
        return ApplyEvent(place, value);
    case FieldKind::kBytes:
        break;
    }
    if (place.usBlock != kNoBlockPlace)
        memcpy(block_ + place.usBlock, value.data(), value.size());
    LogInfo("parameter %u (%s): %zu bytes stored\n", place.ulField, place.name, value.size());
    const ParameterBytes bytes(value.begin(), value.end());
    Keep(std::to_string(place.ulField), bytes);
    if (place.ulField >= kFieldAddress && place.ulField <= kFieldGateway)
        TellAddress(place.ulField, bytes);
    return 0;
}

int32_t ParameterStore::Refuse(const FieldPlace& place, const char* problem, size_t width)
{
    LogWarn("parameter %u (%s): refused, %s (%zu bytes given, %u expected)\n", place.ulField, place.name,
            problem, width, place.usWidth);
    return -1;
}

int32_t ParameterStore::ApplyNumber(const FieldPlace& place, std::span<const uint8_t> value)
{
    const uint32_t number = LoadNumber(value);
    const bool fitsBlock = place.usBlock == kNoBlockPlace || place.ucBlockBytes == sizeof number ||
                           number >> (8 * place.ucBlockBytes) == 0;
    if (number > place.ulMost || !fitsBlock)
        return Refuse(place, "a number that is too large", value.size());
    if (place.usBlock != kNoBlockPlace)
        StoreNumber(block_ + place.usBlock, place.ucBlockBytes, number);
    LogInfo("parameter %u (%s) = %u\n", place.ulField, place.name, number);
    Keep(std::to_string(place.ulField), number);
    if (place.ulField == kFieldPtzStep)
        motors_.SetStep(static_cast<uint8_t>(number));
    if (const auto stream = StreamOfField(place.ulField))
        TellStream(*stream);
    return 0;
}

int32_t ParameterStore::ApplyText(const FieldPlace& place, std::span<const uint8_t> value)
{
    const auto room = value.first(std::min<size_t>(value.size(), place.ucBlockBytes - 1U));
    const std::string text(room.begin(), std::find(room.begin(), room.end(), 0));
    memset(block_ + place.usBlock, 0, place.ucBlockBytes);
    memcpy(block_ + place.usBlock, text.data(), text.size());
    LogInfo("parameter %u (%s) = \"%s\"\n", place.ulField, place.name, text.c_str());
    Keep(std::to_string(place.ulField), text);
    return 0;
}

int32_t ParameterStore::ApplyTour(const FieldPlace& place, std::span<const uint8_t> value)
{
    const TourPlace tour = PlaceOfTour(value.data());
    if (!TourExists(tour))
        return Refuse(place, "a tour that does not exist", value.size());
    StoreTour(value.data(), block_);
    LogInfo("parameter %u (%s): tour %u of channel %u stored\n", place.ulField, place.name, tour.ucTour,
            tour.ucChannel);
    Keep(std::to_string(place.ulField) + "/" + std::to_string(tour.ucChannel) + "/" +
             std::to_string(tour.ucTour),
         ParameterBytes(value.begin(), value.end()));
    return 0;
}

// Users are found by name: the first 32 bytes of an entry.
int32_t ParameterStore::ApplyAccount(const FieldPlace& place, std::span<const uint8_t> value)
{
    constexpr size_t kNameBytes = 32;
    const auto* const name = reinterpret_cast<const char*>(value.data());
    if (name[0] == '\0')
        return Refuse(place, "a user without a name", value.size());
    uint8_t* found = nullptr;
    uint8_t* unused = nullptr;
    for (size_t i = block::kUserEntries; i-- > 0;) {
        uint8_t* const entry = block_ + block::kUsers + i * block::kUserEntryBytes;
        if (*entry == 0)
            unused = entry;
        else if (strncmp(reinterpret_cast<const char*>(entry), name, kNameBytes) == 0)
            found = entry;
    }
    const bool create = place.ulField == kFieldCreateUser;
    uint8_t* const entry = create ? unused : found;
    if (entry == nullptr || (create && found != nullptr))
        return Refuse(place, create ? "the name or all entries are taken" : "an unknown user", value.size());
    if (place.ulField == kFieldDeleteUser)
        memset(entry, 0, block::kUserEntryBytes);
    else
        memcpy(entry, value.data(), block::kUserEntryBytes);
    LogInfo("parameter %u (%s): \"%.32s\"\n", place.ulField, place.name, name);
    const uint8_t* const users = block_ + block::kUsers;
    Keep(kUsersMember, ParameterBytes(users, users + block::kUserEntries * block::kUserEntryBytes));
    return 0;
}

int32_t ParameterStore::ApplyEvent(const FieldPlace& place, std::span<const uint8_t> value)
{
    if (place.ulField == kFieldPtzAction)
        return ApplyPtz(place, value);
    LogInfo("parameter %u: %s\n", place.ulField, place.name);
    if (place.ulField == kFieldFactoryDefault)
        RestoreDefaults();
    return 0;
}

void ParameterStore::RestoreDefaults()
{
    WriteDefaults();
    motors_.Reset();
    changes_.clear();
    Save();
    for (size_t stream = 0; stream < kVideoStreams; ++stream)
        TellStream(stream);
    TellHead();
}

void ParameterStore::TellHead()
{
    if (watch_.onHead)
        watch_.onHead(motors_.HasMoved());
}

void ParameterStore::Keep(const std::string& name, ParameterValue value)
{
    const auto [entry, isNew] = changes_.try_emplace(name);
    const bool changed = isNew || entry->second != value;
    entry->second = std::move(value);
    if (changed)
        Save();
}

void ParameterStore::Save()
{
    if (!loading_ && !stateFile_.empty())
        SaveParameterState(stateFile_, changes_);
}

void ParameterStore::LoadUsers(const ParameterValue& value)
{
    const auto* const users = std::get_if<ParameterBytes>(&value);
    if (users == nullptr || users->size() != block::kUserEntries * block::kUserEntryBytes)
        return;
    memcpy(block_ + block::kUsers, users->data(), users->size());
    changes_[kUsersMember] = value;
}

bool ParameterStore::LoadField(const std::string& name, const ParameterValue& value)
{
    uint32_t field = 0;
    std::from_chars(name.data(), name.data() + name.size(), field);
    const FieldPlace* const place = FindFieldPlace(field);
    if (!SuitsField(value, place))
        return false;
    if (place != nullptr)
        ApplyField(*place, MessageBytes(value, place));
    else
        changes_[name] = value;
    return true;
}

void ParameterStore::Load(const ParameterChanges& changes)
{
    loading_ = true;
    for (const auto& [name, value] : changes)
        if (name == kUsersMember)
            LoadUsers(value);
        else if (name.starts_with(kPresetMembers) ? !LoadPreset(name, value) : !LoadField(name, value))
            LogWarn("%s: \"%s\" is left out: not the kind of value it takes\n", stateFile_.c_str(),
                    name.c_str());
    loading_ = false;
}
