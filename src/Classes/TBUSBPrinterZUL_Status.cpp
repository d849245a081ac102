// The printer's status: asking for it and showing it.
#include "Classes/CommandFrame.h"
#include "Classes/StatusTexts.h"
#include "Classes/TBUSBPrinterZUL.h"

#include "platform/foundation/Format.h"

namespace zul {

std::string TBUSBPrinterZUL::stringForVKStatusString(const Text& rawStatus) {
    return textForStatus(rawStatus);
}

void TBUSBPrinterZUL::updatePrinterStatus() {
    getPrinterStatus({});
}

void TBUSBPrinterZUL::getPrinterStatus(StatusCompletion completion) {
    queryAtOpenInterface(kCommandStatus, [self = sharedSelf<TBUSBPrinterZUL>(),
                                          completion = std::move(completion)](const std::optional<Data>& reply) {
        self->assertOnCommandQueue();
        self->handleStatusReply(reply, completion);
    });
}

void TBUSBPrinterZUL::handleStatusReply(const std::optional<Data>& reply, const StatusCompletion& completion) {
    if (!reply || reply->empty()) {
        logText("Received a null printer status reply ... will try again later");
        return;
    }
    const Text rawStatus = stringFromNulTerminatedUTF8(*reply);
    emit(events::StatusRead{.rawStatus = rawStatus});
    setPrinterStatus(stringForVKStatusString(rawStatus));
    if (completion) completion(rawStatus);
}

} // namespace zul
