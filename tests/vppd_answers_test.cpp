// SPDX-License-Identifier: Apache-2.0
// Tests of answers that are sent after the called object has left the bus. The bus library keeps an
// object's signatures only while the object is registered, and reads them when a value is sent.
#include <android/binder_process.h>
#include <host/vppd/CallbackReceiver.h>
#include <host/vppd/PrivateBus.h>
#include <host/vppd/ServiceObject.h>

#include <future>

#include "support/HostilePeer.h"

namespace qoz::test {
namespace {

using host::vppd::Bus;
const PeerAnswer kDeadObject{host::vppd::kDeadObject, -1};

// A bus with a peer. The bus cannot start a service; this process may act as one.
class VppdAnswers : public ::testing::Test {
  protected:
    LogCapture quiet;
    std::optional<host::PrivateBus> bus{std::in_place, std::vector<std::string>(),
                                        std::filesystem::temp_directory_path(), "/bin/false"};
    const std::shared_ptr<Bus> connection = std::make_shared<Bus>(bus->address());
    HostilePeer peer{bus->address()};
};

TEST_F(VppdAnswers, ABusThatEndsIsReported) {
    std::promise<void> gone;
    connection->start([&] { gone.set_value(); });
    bus.reset();
    gone.get_future().wait();
    EXPECT_FALSE(connection->isAlive());
}

TEST_F(VppdAnswers, ACallbackThatOutlastsItsReceiverIsAnsweredWithAnError) {
    ABinderProcess_startThreadPool();
    Gate callback;
    const auto recorder = ndk::SharedRefBase::make<SessionRecorder>();
    recorder->onSeen = [&](const std::string&) { callback.hold(); };
    host::vppd::CallbackReceiver receiver(connection, peer.name(), recorder);
    connection->start({});
    auto answer = std::async(std::launch::async, [&] {
        return peer.call(connection->name(), receiver.path(), host::vppd::kCallbacksInterface,
                         "EventDrainDone");
    });
    callback.inside.wait();
    receiver.stop(std::chrono::steady_clock::now());
    callback.release.count_down();
    EXPECT_EQ(answer.get(), kDeadObject);
}

TEST_F(VppdAnswers, ASessionThatOpensAfterItsServiceHasLeftIsAnsweredWithAnError) {
    std::optional<host::vppservice::RegisteredService> service(std::in_place);
    std::optional<host::vppd::ServiceObject> object(std::in_place, connection, service->service());
    connection->start({});
    // The service creates no session for the flags 1, but its answer is still a value. The fault
    // delays the answer until the service ends.
    host::armFault(*host::parseFault("getNewVppSession=late:60000", nullptr));
    auto answer = std::async(std::launch::async, [&] {
        return peer.call(connection->name(), host::vppd::kServicePath,
                         host::vppd::kServiceInterface, "GetNewVppSession", int32_t{1});
    });
    EXPECT_TRUE(eventually([] { return host::faultsFired() == 1; }));
    object.reset();
    service.reset();
    EXPECT_EQ(answer.get(), kDeadObject);
    host::clearFaults();
}

}  // namespace
}  // namespace qoz::test
