// Text helpers: any text of a printer becomes valid UTF-8 or nullopt, and dumps and ranges remain within bounds.
#include "fuzz/FuzzInput.h"

#include "Classes/USBInterfaceHelpers.h"
#include "holven_Base/HOLVEN_NSStringAdditions.h"
#include "platform/foundation/PrintableText.h"
#include "protocol/StatusTexts.h"

#include <unicode/unistr.h>

using namespace zul;
using namespace zul::test;

namespace {

bool isUTF8(const std::string& text) {
    std::string again;
    icu::UnicodeString::fromUTF8(text).toUTF8String(again); // invalid bytes become the replacement character
    return again == text;
}

constexpr StringEncoding kEncodings[] = {StringEncoding::ascii,
                                         StringEncoding::japaneseEUC,
                                         StringEncoding::utf8,
                                         StringEncoding::isoLatin1,
                                         StringEncoding::shiftJIS,
                                         StringEncoding::isoLatin2,
                                         StringEncoding::utf16,
                                         StringEncoding::windowsCP1252,
                                         StringEncoding::utf16BigEndian,
                                         StringEncoding::utf16LittleEndian,
                                         StringEncoding::utf32,
                                         StringEncoding::utf32BigEndian,
                                         StringEncoding::utf32LittleEndian,
                                         static_cast<StringEncoding>(77)};

void decode(const Data& bytes, std::size_t maxLength) {
    Data ended = bytes;
    ended.insert(ended.end(), 7, 0); // a zero unit of any size ends it, as in the callers' buffers
    for (const StringEncoding encoding : kEncodings) {
        const auto text = stringWithCString(ended.data(), maxLength, encoding);
        require(!text || isUTF8(*text), "text is UTF-8");
    }
    require(isUTF8(stringFromUTF16WithByteOrderMark(bytes)), "16-bit text becomes UTF-8");
}

void cut(const std::string& text, const std::string& first, const std::string& second) {
    for (const Marks marks : {Marks::excluded, Marks::included}) {
        for (const CompareOptions options : {CompareOptions::none, CompareOptions::caseInsensitive,
                                             CompareOptions::backwards, CompareOptions::anchored}) {
            const auto part =
                TBCFStringCreateSubstringFromPrefixToTerminatorWithOptions(text, first, second, options, marks);
            require(!part || part->size() <= text.size(), "a part is no longer than the whole");
        }
    }
    static_cast<void>(stringByReplacingSubStrings(text, {first, second}, {second}, CompareOptions::caseInsensitive,
                                                  {first.size(), second.size()}));
    const bool isLess = std::is_lt(numericalCaseInsensitiveCompare(first, second));
    require(isLess == std::is_gt(numericalCaseInsensitiveCompare(second, first)), "an order has two directions");
}

void show(const std::string& text) {
    const std::string lines = printable(text);
    const std::string inLine = printableInLine(text);
    require(isUTF8(lines) && isUTF8(inLine), "what is shown is UTF-8");
    require(lines.size() <= text.size(), "what is shown is no longer than what came");
    require(printable(lines) == lines && printableInLine(inLine) == inLine, "what is shown can be shown as it is");
    for (const char byte : inLine) require(static_cast<unsigned char>(byte) >= 0x20, "no control character is shown");
    require(printableJson(lines) == lines, "what can be shown needs no escape");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    FuzzInput input(bytes, size);
    const std::size_t maxLength = input.takeByte();
    const std::string first = input.takeText();
    const std::string second = input.takeText();
    const Data rest = input.takeRest();
    const std::string text(rest.begin(), rest.end());
    decode(rest, std::min(maxLength, rest.size()));
    show(text);
    if (isUTF8(text) && isUTF8(first) && isUTF8(second)) cut(text, first, second);
    require(!textForStatus(text).empty(), "every status has a text");
    static_cast<void>(hexdump(rest, maxLength, first.size()));
    return 0;
}
