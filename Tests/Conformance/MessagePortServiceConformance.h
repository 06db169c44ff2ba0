#pragma once

#include "Platform/Interfaces/Dispatch.h"
#include "Platform/Interfaces/MessagePortService.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace corvid::test {

/// A message-port service to be held against the interface, with the queues that go with it.
class MessagePortServiceUnderTest {
public:
    virtual ~MessagePortServiceUnderTest() = default;
    virtual MessagePortService& service() = 0;
    virtual Dispatch& dispatch() = 0;
};

/// One realisation: a name for the test report and how to make it afresh.
struct MessagePortServiceMaker {
    std::string name;
    std::function<std::unique_ptr<MessagePortServiceUnderTest>()> make;
};

/// What every realisation of MessagePortService must do. A realisation instantiates the suite
/// with its maker; the cases are in MessagePortServiceConformance.cpp.
class MessagePortServiceConformance : public testing::TestWithParam<MessagePortServiceMaker> {
protected:
    MessagePortServiceConformance() : underTest_(GetParam().make()) {}

    MessagePortService& service() { return underTest_->service(); }
    DispatchQueue& queue(const std::string& label = "queue") {
        return underTest_->dispatch().serialQueue(label);
    }

private:
    std::unique_ptr<MessagePortServiceUnderTest> underTest_;
};

} // namespace corvid::test
