// S-record text: all checks agree on whether there is a fault, and its line exists.
#include "fuzz/FuzzInput.h"

#include "archive/SRecord.h"

using namespace zul;
using namespace zul::test;

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const Data data(bytes, bytes + size);
    const auto fault = findSRecordFault(data);
    require(verifySRecData(data) == !fault, "both checks agree");
    require(verifyMotorolaSFile(data) == !fault, "the check of a file agrees");
    if (fault) {
        require(fault->line <= size + 1, "the line is in the file");
        require(!fault->reason.empty(), "the fault has a reason");
    }
    const Data padded = paddedData(data);
    require(padded.size() % 4 == 0 && padded.size() >= size && padded.size() < size + 4, "padding is to four bytes");
    require(std::equal(data.begin(), data.end(), padded.begin()), "padding changes no earlier byte");
    require(checksumForData(padded) == checksumForData(data), "zeros do not change the sum");
    return 0;
}
