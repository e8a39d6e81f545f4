// The scratch directory under attack: what another user of the machine could
// plant in /tmp before the hook runs. Each case runs in a private mount
// namespace with a fresh tmpfs on /tmp, so the machine's own /tmp is never
// touched; that needs root and unshare, and the tests are skipped without.
#include <gtest/gtest.h>

#include <unistd.h>

#include "support/TestSupport.hpp"

using namespace testsupport;

namespace {

// Copies the hook out of the way (the build may live under /tmp), puts a
// fresh tmpfs on /tmp and sets up a HOME there; then runs `body`.
const std::string kPrelude = R"sh(set -e
mount -t tmpfs tmpfs /mnt
cp "$HOOK" /mnt/agent-hook
hook=/mnt/agent-hook
mount -t tmpfs tmpfs /tmp
export HOME=/tmp/home
mkdir -p "$HOME"
S=/tmp/voxtrel-agent
stop='{"hook_event_name":"Stop","session_id":"s1","cwd":"/tmp","last_assistant_message":"Done."}'
note='{"hook_event_name":"Notification","session_id":"s1"}'
)sh";

Finished inPrivateTmp(const std::string& body) {
    const std::vector<std::string> environment = {"HOOK=" + std::string(AGENT_HOOK_PROGRAM), "PATH=/usr/sbin:/usr/bin:/sbin:/bin"};
    RunningProcess process =
        start("/usr/bin/unshare", {"-m", "--propagation", "private", "/bin/bash", "-c", kPrelude + body}, environment);
    return finish(process);
}

class ScratchSafety : public ::testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount a private /tmp";
        const Finished probe = inPrivateTmp("true");
        if (probe.status != 0) GTEST_SKIP() << "no private mount namespace here: " << probe.err;
    }
};

}  // namespace

TEST_F(ScratchSafety, ADirectoryThatIsNotTheUsersIsNeverUsed) {
    struct Case {
        std::string plant;
        std::string problem;
    };
    const Case cases[] = {
        {"mkdir /tmp/elsewhere; ln -s /tmp/elsewhere $S", "/tmp/voxtrel-agent is a symbolic link"},
        {"mkdir /tmp/elsewhere; mkdir $S; chown 65534 $S", "/tmp/voxtrel-agent belongs to another user (uid 65534)"},
        {"mkdir /tmp/elsewhere; touch $S", "/tmp/voxtrel-agent is not a directory"},
    };
    for (const Case& c : cases) {
        const Finished finished = inPrivateTmp(c.plant + R"sh(
printf '%s' "$stop" | $hook claude > /tmp/out || echo "status $?"
echo "output [$(cat /tmp/out)]"
echo "left in the planted place: $(find /tmp/elsewhere $S -mindepth 1 2>/dev/null | wc -l)"
)sh");
        EXPECT_EQ(finished.status, 0) << finished.err;
        EXPECT_EQ(finished.err, "agent-hook: " + c.problem + "; leaving the decision to the agent\n");
        EXPECT_EQ(finished.out, "output []\nleft in the planted place: 0\n") << c.plant;
    }
}

TEST_F(ScratchSafety, AResponseFileThatIsALinkOrAnotherUsersIsNotTheAnswer) {
    const Finished finished = inPrivateTmp(R"sh(
echo 'my secret' > /tmp/secret
printf '%s' "$stop" | $hook claude > /tmp/out 2> /tmp/err &
pid=$!
for i in $(seq 200); do [ -e $S/s1-stop-message.txt ] && break; sleep 0.05; done
ln -s /tmp/secret $S/s1-stop-response.txt
sleep 1.5
rm $S/s1-stop-response.txt
printf 'planted' > /tmp/planted; chown 65534 /tmp/planted; mv /tmp/planted $S/s1-stop-response.txt
sleep 1.5
rm $S/s1-stop-response.txt
printf 'the real answer' > $S/s1-stop-response.txt
wait $pid
cat /tmp/out; echo
grep -o 'Ignoring response file .*' /tmp/err
)sh");
    EXPECT_EQ(finished.out, R"({"decision":"block","reason":"the real answer"})"
                            "\n"
                            "Ignoring response file /tmp/voxtrel-agent/s1-stop-response.txt: a symbolic link\n"
                            "Ignoring response file /tmp/voxtrel-agent/s1-stop-response.txt: another user's (uid 65534)\n")
        << finished.err;
}

// A scratch directory that cannot be written (read-only here) holding an
// answer from an earlier turn: that answer is never taken, and the hook
// steps aside at once instead of waiting for a request that never went out.
TEST_F(ScratchSafety, ARequestThatCannotBeWrittenIsGivenUpAtOnce) {
    const Finished finished = inPrivateTmp(R"sh(
mkdir -m 0700 $S
printf 'the old answer' > $S/s1-stop-response.txt
mount --bind $S $S
mount -o remount,bind,ro $S
printf '%s' "$stop" | timeout 20 $hook claude > /tmp/out 2> /tmp/err; echo "status $?"
echo "output [$(cat /tmp/out)]"
grep -c 'leaving the decision to the agent session=s1' /tmp/err
)sh");
    EXPECT_EQ(finished.out, "status 0\noutput []\n1\n") << finished.err;
}
