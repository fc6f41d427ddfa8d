// A second process at the other end of the binder, for the tests of the two interfaces.
#pragma once

#include <binder/IBinder.h>
#include <binder/Parcel.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace protocol {

/// main() of a protocol test: runs the tests, or the peer when the program is started as one.
int testMain(int argc, char** argv);

/// Bytes as text, in groups of four: "05000000 ff". The layouts in the tests are written this way.
std::string hex(const uint8_t* bytes, size_t size);
std::string hex(const android::Parcel& parcel);
std::vector<uint8_t> unhex(const std::string& text);

/// Makes a two-way transaction with exactly these bytes.
android::status_t send(const android::sp<android::IBinder>& binder, uint32_t code,
                       const std::string& bytes, android::Parcel* reply);

/// A started peer. Its process ends when this goes.
class Peer {
public:
    Peer();
    ~Peer();

    const android::sp<android::IBinder> service;   ///< a RecordingService
    const android::sp<android::IBinder> callback;  ///< a RecordingCallback
    const android::sp<android::IBinder> scripted;  ///< a ScriptedBinder

    /// Ends the process at once, as a crash would.
    void kill() const;

    /// Waits for `count` calls of `recorder` and takes them.
    static std::vector<std::string> takeCalls(const android::sp<android::IBinder>& recorder,
                                              int32_t count);

    /// Makes the service's next operation answer with an exception; `code` is the service's own.
    void raise(int32_t exception, const char* message, int32_t code = 0) const;

    /// Makes every later transaction of the scripted object return `returned` and these bytes.
    void script(android::status_t returned, const std::string& reply = "") const;

    struct Request {
        uint32_t code;
        uint32_t flags;
        std::string bytes;
    };
    /// Waits for a transaction of the scripted object and takes it.
    Request takeRequest() const;

private:
    struct Process;
    explicit Peer(std::unique_ptr<Process> process);

    std::unique_ptr<Process> mProcess;
};

}  // namespace protocol
