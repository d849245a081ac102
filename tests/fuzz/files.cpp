// Files from users and archives: settings and digests. A damaged file yields a reason and loses no data.
#include "fuzz/FuzzInput.h"

#include "archive/FirmwareDigests.h"
#include "platform/foundation/UserDefaults.h"
#include "support/TemporaryFolder.h"

using namespace zul;
using namespace zul::test;

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const TemporaryFolder folder;
    const std::string contents(reinterpret_cast<const char*>(bytes), size);

    folder.write(kDigestFileName, contents);
    const FirmwareDigests digests = readFirmwareDigests(folder.path);
    require(digests.problem.empty() || digests.digests.empty(), "a file with a problem gives no digests");

    const auto file = folder.write("defaults.json", contents);
    {
        UserDefaults defaults(file);
        const auto before = defaults.all();
        require(defaults.setString("key", "value"), "settings can be written");
        const UserDefaults again(file);
        require(again.stringForKey("key") == "value", "what was written is read");
        for (const auto& [key, value] : before) {
            require(key == "key" || again.stringForKey(key) == value, "what was there is there");
        }
    }
    for (const auto& entry : std::filesystem::directory_iterator(folder.path)) std::filesystem::remove(entry.path());
    return 0;
}
