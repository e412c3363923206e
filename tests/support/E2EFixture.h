#pragma once
// What the end-to-end tests share: a fresh host folder, the console run on
// it with JSON answers, and the listing keyed by VEID.
#include "AgentRun.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <boost/json.hpp>
#include <map>
#include <string>
#include <vector>

namespace kqtest {

class E2ETest : public ::testing::Test {
protected:
    // kqagent --root HOST --json ARGS..., with `input` on its standard input.
    RunResult json(std::vector<std::string> args, const std::string& input = "")
    {
        args.insert(args.begin(), "--json");
        return agent(host.root(), args, input);
    }

    // VEID -> the environment object of a listing; a listing without
    // environments throws, which fails the test.
    std::map<int, boost::json::object> listing()
    {
        RunResult run = json({"list"});
        EXPECT_EQ(0, run.exitCode) << run.err;
        std::map<int, boost::json::object> envs;
        const boost::json::object result = run.json();
        for (const auto& value : result.at("envs").as_array())
            envs[static_cast<int>(value.as_object().at("veid").as_int64())] = value.as_object();
        return envs;
    }

    std::string confPath(int veid) const
    {
        return host.path("etc/sysconfig/kq-scripts/" + std::to_string(veid) + ".conf");
    }

    TempHost host;
};

// The same on a simulated host made before each test, with `containers`
// added ("kqsim add" arguments, one container each).
class SimulatedE2ETest : public E2ETest {
protected:
    explicit SimulatedE2ETest(std::vector<std::string> containers = {}) : m_containers(std::move(containers)) {}

    void SetUp() override
    {
        ASSERT_EQ(0, host.simulated());
        for (const std::string& container : m_containers)
            ASSERT_EQ(0, host.kqsim("add " + container)) << container;
    }

private:
    std::vector<std::string> m_containers;
};

} // namespace kqtest
