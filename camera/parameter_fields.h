// Parameter fields and the message codes that stand for them. Both sides of the parameter queue
// include this table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

// Within a row the code rises by one with the field id. Fields in no row are not accepted.
struct ParameterFieldRange {
    uint32_t ulFirst;
    uint32_t ulLast;
    int32_t iFirstCode;
};

inline constexpr ParameterFieldRange kParameterFields[] = {
    {4096, 4097, 0},   {4098, 4098, 14},  {4099, 4099, 46},  {4100, 4100, 272}, {4101, 4104, 2},
    {4105, 4105, 15},  {4106, 4107, 280}, {4108, 4108, 6},   {4109, 4110, 282}, {4111, 4114, 186},
    {4115, 4115, 260}, {4116, 4116, 256}, {4117, 4117, 205}, {4118, 4121, 197}, {4122, 4123, 194},
    {4124, 4124, 64},  {4125, 4126, 241}, {4127, 4128, 258}, {4129, 4129, 271}, {4130, 4144, 206},
    {4145, 4150, 65},  {4151, 4153, 74},  {4154, 4156, 71},  {4157, 4171, 77},  {4172, 4195, 109},
    {4196, 4210, 92},  {4211, 4211, 108}, {4212, 4218, 177}, {4219, 4256, 133}, {4258, 4262, 172},
    {4263, 4273, 28},  {4274, 4274, 44},  {4275, 4279, 39},  {4280, 4280, 45},  {4281, 4285, 16},
    {4286, 4289, 23},  {4290, 4291, 21},  {4292, 4292, 27},  {4293, 4297, 262}, {4298, 4299, 47},
    {4300, 4303, 223}, {4304, 4305, 229}, {4306, 4312, 273}, {4313, 4313, 233}, {4314, 4314, 62},
    {4316, 4316, 235}, {4317, 4318, 343}, {4321, 4321, 267}, {4322, 4322, 269}, {4323, 4323, 268},
    {4324, 4324, 270}, {4325, 4327, 340}, {4328, 4347, 284}, {4348, 4348, 319}, {4349, 4355, 312},
    {4356, 4356, 231}, {4357, 4364, 304}, {4365, 4365, 232}, {4366, 4368, 320}, {4370, 4386, 323},
    {4387, 4387, 8},   {4388, 4388, 7},   {4389, 4389, 10},  {4390, 4390, 9},   {4391, 4391, 11},
    {4392, 4393, 346}, {4394, 4394, 240}, {4395, 4396, 243}, {4397, 4400, 190}, {4401, 4401, 345},
    {4402, 4402, 221}, {4404, 4404, 13},  {4405, 4405, 49},  {4406, 4406, 53},  {4407, 4407, 245},
    {4408, 4408, 54},  {4409, 4409, 63},  {4411, 4411, 61},  {4412, 4412, 246}, {4413, 4413, 107},
    {4418, 4419, 184}, {4420, 4420, 196}, {4421, 4422, 56},  {4423, 4423, 201}, {4426, 4428, 202},
    {4430, 4430, 222}, {4431, 4431, 221}, {4433, 4434, 227}, {4435, 4435, 238}, {8192, 8192, 55},
    {8193, 8193, 247}, {8195, 8197, 248}, {8199, 8199, 255}, {8200, 8200, 261}, {8201, 8210, 348},
};

inline constexpr uint32_t kFieldSetDns = 4099;    // SFIELD_SET_DNS
inline constexpr uint32_t kFieldNoMessage = 4403; // accepted, but there is nothing to send

// Whether some field has this message code.
constexpr bool IsParameterCode(int32_t code)
{
    for (const ParameterFieldRange& range : kParameterFields)
        if (code >= range.iFirstCode &&
            code - range.iFirstCode <= static_cast<int32_t>(range.ulLast - range.ulFirst))
            return true;
    return false;
}

// Message code of a field, or nothing when the field is not accepted.
constexpr std::optional<int32_t> ParameterCode(uint32_t field)
{
    for (const ParameterFieldRange& range : kParameterFields)
        if (field >= range.ulFirst && field <= range.ulLast)
            return range.iFirstCode + static_cast<int32_t>(field - range.ulFirst);
    return std::nullopt;
}
