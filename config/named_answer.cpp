#include "config/named_answer.h"

#include <algorithm>
#include <cstring>

namespace {

enum class Piece : uint8_t { kObject, kName, kRet, kSession };
using enum Piece;

// By MemberOrder
constexpr Piece kOrders[][4] = {
    {kObject, kName, kRet, kSession},
    {kName, kObject, kRet, kSession},
    {kName, kRet, kSession, kObject},
};

void WritePiece(Piece piece, const NamedAnswer& row, uint32_t sessionId, ReplyText* text)
{
    switch (piece) {
    case kObject:
        Add(text, R"(@:@)", Quoted(row.answer), Plain(row.fixed != nullptr ? row.fixed : ""));
        if (row.build != nullptr)
            row.build(text);
        return;
    case kName:
        return Add(text, R"("Name":@)", Quoted(row.answer));
    case kRet:
        return Add(text, R"("Ret":@)", Number(kRetSuccess));
    case kSession:
        return Add(text, R"("SessionID":@)", Hex(sessionId));
    }
}

} // namespace

const NamedAnswer* FindAnswer(std::span<const NamedAnswer> answers, const char* name)
{
    if (name == nullptr)
        return nullptr;
    const auto row = std::find_if(answers.begin(), answers.end(),
                                  [name](const NamedAnswer& r) { return strcmp(r.name, name) == 0; });
    return row != answers.end() ? &*row : nullptr;
}

void WriteNamedAnswer(const NamedAnswer& row, uint32_t sessionId, ReplyText* text)
{
    const char* separator = "{";
    for (const Piece piece : kOrders[static_cast<size_t>(row.order)]) {
        Add(text, "@", Plain(separator));
        WritePiece(piece, row, sessionId, text);
        separator = ",";
    }
    Add(text, "}");
}

void WriteNamelessAnswer(int result, uint32_t sessionId, ReplyText* text)
{
    Add(text, R"({"Name":"","Ret":@,"SessionID":@})", Number(result), Hex(sessionId));
}
