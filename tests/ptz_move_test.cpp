// PTZ movement and status: the recorded PTZ program calls, the motion
// timers, the lens tables and the position queries.
#include "ptz/ptzmove.h"
#include "tests/fixture.h"

#include <stdio.h>

namespace {

class PtzMove : public CameraTest {
protected:
    void SetUp() override
    {
        CameraTest::SetUp();
        word(PAN_TILT_WORD) = PAN_TILT_RS485;
        word(ZOOM_WORD) = LENS_SPLIT_SIXTH_STEP;
        word(IO_LAYOUT_WORD) = IO_LAYOUT_HEAD;
    }
    CgiResult move(const std::string& action, const std::string& inner, const std::string& profile = "Profile1")
    {
        std::string token = profile.empty() ? "" : "<tptz:ProfileToken>" + profile + "</tptz:ProfileToken>";
        return call("<tptz:" + action + ">" + token + inner + "</tptz:" + action + ">");
    }
    static std::string panTilt(const std::string& element, const std::string& x, const std::string& y)
    {
        return "<tptz:" + element + "><tt:PanTilt x=\"" + x + "\" y=\"" + y + "\"/></tptz:" + element + ">";
    }
    static std::string zoom(const std::string& element, const std::string& x)
    {
        return "<tptz:" + element + "><tt:Zoom x=\"" + x + "\"/></tptz:" + element + ">";
    }
    std::string takeCalls()
    {
        std::string calls = cameraCalls();
        removeFile("camera_calls.log");
        return calls;
    }
    void position(const std::string& panTiltLines, const std::string& zoomLine)
    {
        writeFile("root/testShareMemClient.out", panTiltLines);
        writeFile("home/aaaserver/viscaClient.out", zoomLine);
    }
    const std::string PTZ = "/usr/apache/htdocs/cgi-bin/com/ptz.cgi ";
};

TEST_F(PtzMove, ContinuousMoveCommandsAndTimers)
{
    struct Case { std::string inner; std::string profile; std::string calls; int w55, w56; };
    for (const Case& c : {
             Case{panTilt("Velocity", "0", "0"), "Profile1",
                  "QUERY_STRING=continuouspantiltmove REMOTE_USER=Admin continuouspantiltmove=0.000,0.000\n", TIMER_ZERO_VELOCITY,
                  TIMER_ZERO_VELOCITY},
             Case{panTilt("Velocity", "0.5", "-0.25") + "<tptz:Timeout>PT10M</tptz:Timeout>", "Profile1",
                  "QUERY_STRING=continuouspantiltmove REMOTE_USER=Admin continuouspantiltmove=50.000,-25.000\n", 6000, 7},
             Case{zoom("Velocity", "-0.555"), "",
                  "QUERY_STRING=continuouszoommove REMOTE_USER=Admin continuouszoommove=-55\n", TIMER_ZERO_VELOCITY,
                  TIMER_UNLIMITED},
         }) {
        word(PAN_TILT_TIMER_WORD) = 7;
        word(ZOOM_TIMER_WORD) = 7;
        CgiResult r = move("ContinuousMove", c.inner, c.profile);
        EXPECT_EQ(r.envelopeBody, "<tptz:ContinuousMoveResponse></tptz:ContinuousMoveResponse>") << c.inner;
        std::string calls = takeCalls();
        EXPECT_EQ(calls, PTZ + c.calls) << c.inner;
        EXPECT_EQ(word(PAN_TILT_TIMER_WORD), c.w55) << c.inner;
        EXPECT_EQ(word(ZOOM_TIMER_WORD), c.w56) << c.inner;
    }
    struct Bad { std::string inner; const char* fault; };
    for (const Bad& b : {Bad{panTilt("Velocity", "0.1", "0.1") + "<tptz:Timeout>PT0S</tptz:Timeout>", "timeout argument"},
                         Bad{panTilt("Velocity", "0.1", "0.1") + "<tptz:Timeout>PT601S</tptz:Timeout>", "timeout argument"},
                         Bad{panTilt("Velocity", "1.5", "0"), "ter:InvalidVelocity"},
                         Bad{panTilt("Velocity", "abc", "0"), "ter:InvalidVelocity"},
                         Bad{panTilt("Velocity", "0." + std::string(30, '1'), "0"), "ter:InvalidVelocity"}}) {
        CgiResult r = move("ContinuousMove", b.inner);
        EXPECT_NE(r.envelopeBody.find(b.fault), std::string::npos) << b.inner << r.envelopeBody;
    }
    // y may be one character longer than x.
    EXPECT_EQ(move("ContinuousMove", panTilt("Velocity", "0", "0." + std::string(30, '1'))).status, 200);
    EXPECT_FALSE(takeCalls().empty());
}

TEST_F(PtzMove, AbsoluteTargetsAndLensTables)
{
    struct Case { int lens; std::string inner; std::string calls; int w68; };
    for (const Case& c : {
             Case{LENS_SPLIT_SIXTH_STEP, panTilt("Position", "-1", "-1"), "QUERY_STRING=move REMOTE_USER=Admin pan=-179.000000 tilt=0.000000\n", 9},
             Case{LENS_SPLIT_SIXTH_STEP, panTilt("Position", "1", "1"), "QUERY_STRING=move REMOTE_USER=Admin pan=180.000000 tilt=90.000000\n", 9},
             Case{LENS_SPLIT_SIXTH_STEP, zoom("Position", "0.55"), "QUERY_STRING=zoomratio REMOTE_USER=Admin zoomratio=6\n", 0},
             Case{LENS_SPLIT_SIXTH_STEP, zoom("Position", "0.65"), "QUERY_STRING=zoomratio REMOTE_USER=Admin zoomratio=6\n", 1},
             Case{LENS_SPLIT_SIXTH_STEP, zoom("Position", "1"), "QUERY_STRING=zoomratio REMOTE_USER=Admin zoomratio=10\n", 9},
             Case{LENS_THREE_STEPS, zoom("Position", "0.34"), "QUERY_STRING=zoomratio REMOTE_USER=Admin zoomratio=1\n", 9},
             Case{LENS_THREE_STEPS, zoom("Position", "0.35"), "QUERY_STRING=zoomratio REMOTE_USER=Admin zoomratio=2\n", 9},
             Case{LENS_THREE_STEPS, zoom("Position", "0.7"), "QUERY_STRING=zoomratio REMOTE_USER=Admin zoomratio=3\n", 9},
             Case{LENS_EIGHTEEN_STEPS, zoom("Position", "0.25"), "QUERY_STRING=zoomratio REMOTE_USER=Admin zoomratio=4\n", 9},
             Case{LENS_EIGHTEEN_STEPS, zoom("Position", "0.35"), "QUERY_STRING=zoomratio REMOTE_USER=Admin zoomratio=6\n", 9},
             Case{LENS_EIGHTEEN_STEPS, zoom("Position", "0.99"), "QUERY_STRING=zoomratio REMOTE_USER=Admin zoomratio=17\n", 9},
             Case{LENS_EIGHTEEN_STEPS, zoom("Position", "1"), "QUERY_STRING=zoomratio REMOTE_USER=Admin zoomratio=18\n", 9},
             Case{LENS_TEN_STEPS, zoom("Position", "0.99"), "QUERY_STRING=zoomratio REMOTE_USER=Admin zoomratio=10\n", 9},
             Case{LENS_UNCONTROLLED, zoom("Position", "0.5"), "", 9},
         }) {
        word(ZOOM_WORD) = c.lens;
        word(ZOOM_STEP6_WORD) = 9;
        CgiResult r = move("AbsoluteMove", c.inner);
        EXPECT_EQ(r.status, 200) << c.inner << r.envelopeBody;
        EXPECT_EQ(takeCalls(), c.calls.empty() ? "" : PTZ + c.calls) << c.lens << c.inner;
        EXPECT_EQ(word(ZOOM_STEP6_WORD), c.w68) << c.inner;
    }
    // The integrated dome takes pan, tilt and zoom position together.
    word(PAN_TILT_WORD) = PAN_TILT_INTEGRATED;
    word(ZOOM_WORD) = LENS_DOME;
    word(ZOOM_MODULE_WORD) = ZOOM_MODULE_2489;
    EXPECT_EQ(move("AbsoluteMove", "<tptz:Position><tt:PanTilt x=\"0.5\" y=\"0\"/><tt:Zoom x=\"0.5\"/></tptz:Position>"
                                   "<tptz:Speed><tt:PanTilt x=\"1\" y=\"0.5\"/><tt:Zoom x=\"0\"/></tptz:Speed>").status, 200);
    EXPECT_EQ(takeCalls(), PTZ + "QUERY_STRING=move REMOTE_USER=Admin pan=90.000000 tilt=45.000000 zoom=1244\n");
    EXPECT_NE(move("AbsoluteMove", panTilt("Position", "1.01", "0")).envelopeBody.find("ter:InvalidPosition"), std::string::npos);
    EXPECT_NE(move("AbsoluteMove", "<tptz:Position><tt:PanTilt x=\"0\" y=\"0\"/></tptz:Position><tptz:Speed>"
                                   "<tt:PanTilt x=\"2\" y=\"0\"/></tptz:Speed>").envelopeBody.find("ter:InvalidSpeed"),
              std::string::npos);
    EXPECT_EQ(takeCalls(), "");
}

TEST_F(PtzMove, StopStatusAndProfileChecks)
{
    word(PAN_TILT_TIMER_WORD) = 30;
    word(ZOOM_TIMER_WORD) = TIMER_UNLIMITED;
    position("pan = 90.0\ntilt = 0.0\nzoom = 5\n", "zoom = 6\n");
    word(ZOOM_STEP6_WORD) = 0;
    CgiResult status = move("GetStatus", "");
    EXPECT_NE(status.envelopeBody.find("y=\"-1\" x=\"0.5\"></tt:PanTilt><tt:Zoom space=\"http://www.onvif.org/ver10/"
                                       "tptz/ZoomSpaces/PositionGenericSpace\" x=\"0.5\"></tt:Zoom></tt:Position>"
                                       "<tt:MoveStatus><tt:PanTilt>MOVING</tt:PanTilt><tt:Zoom>MOVING</tt:Zoom>"),
              std::string::npos) << status.envelopeBody;
    word(ZOOM_STEP6_WORD) = 1;
    EXPECT_NE(move("GetStatus", "").envelopeBody.find("x=\"0.6\"></tt:Zoom>"), std::string::npos);

    EXPECT_EQ(move("Stop", "<tptz:PanTilt>true</tptz:PanTilt><tptz:Zoom>true</tptz:Zoom>").status, 200);
    EXPECT_EQ(word(PAN_TILT_TIMER_WORD), TIMER_STOPPED);
    EXPECT_EQ(word(ZOOM_TIMER_WORD), TIMER_STOPPED);
    const std::string stops = takeCalls();
    EXPECT_NE(stops.find(PTZ + "QUERY_STRING=continuouspantiltmove REMOTE_USER=Admin continuouspantiltmove=0,0\n" + PTZ +
                         "QUERY_STRING=continuouszoommove REMOTE_USER=Admin continuouszoommove=0\n"), std::string::npos)
        << stops;
    EXPECT_NE(move("GetStatus", "").envelopeBody.find("<tt:PanTilt>IDLE</tt:PanTilt><tt:Zoom>IDLE</tt:Zoom>"),
              std::string::npos);

    for (const std::string& broken : {std::string(""), std::string("pan = \ntilt = x\n"), std::string("pan = 1e999\n"),
                                      std::string(3000, 'z')}) {
        position(broken, "zoom = 1\n");
        EXPECT_NE(move("GetStatus", "").envelopeBody.find("ter:NoStatus"), std::string::npos) << broken.substr(0, 20);
    }
    call("<trt:CreateProfile><trt:Name>x</trt:Name><trt:Token>NoPtz</trt:Token></trt:CreateProfile>");
    EXPECT_NE(move("GetStatus", "", "NoPtz").envelopeBody.find("ter:NoPTZProfile"), std::string::npos);
    EXPECT_NE(move("GetStatus", "", "Nope").envelopeBody.find("The requested profile token ProfileToken Nope does not exist."),
              std::string::npos);
    word(PAN_TILT_WORD) = PAN_TILT_NONE;
    word(ZOOM_WORD) = LENS_NONE;
    EXPECT_NE(move("ContinuousMove", "").envelopeBody.find("PTZ is not supported."), std::string::npos);
    // The imaging service's focus stop lands here too.
    CgiResult focus = call("<timg:Stop><timg:VideoSourceToken>VideoSrcConfig1</timg:VideoSourceToken></timg:Stop>");
    EXPECT_EQ(focus.envelopeBody, "<tt:StopResponse></tt:StopResponse>");
}

TEST_F(PtzMove, RelativeMoveSteps)
{
    position("pan = 170.0\ntilt = 80.0\nzoom = 2\n", "zoom = 2\n");
    EXPECT_EQ(move("RelativeMove", panTilt("Translation", "0.1", "0.5")).status, 200);
    const std::string query = "/root/testShareMemClient 6 81 01 04 07 04 ff\n";
    EXPECT_EQ(takeCalls(), query + PTZ + "QUERY_STRING=move REMOTE_USER=Admin pan=-154.000000 tilt=90.000000\n");
    EXPECT_EQ(move("RelativeMove", panTilt("Translation", "1", "0")).status, 200);
    EXPECT_EQ(takeCalls(), query + PTZ + "QUERY_STRING=move REMOTE_USER=Admin pan=170.000000 tilt=80.000000\n");
    EXPECT_EQ(move("RelativeMove", zoom("Translation", "0.2")).status, 200);
    EXPECT_EQ(takeCalls(), "/home/aaaserver/viscaClient 6 81 01 04 07 06 FF\n" + PTZ +
                               "QUERY_STRING=zoomsteps REMOTE_USER=Admin zoomsteps=2\n");
    EXPECT_NE(move("RelativeMove", "").envelopeBody.find("ter:InvalidPosition"), std::string::npos);
}

TEST(PtzLens, StepsAndReadBack)
{
    int w68 = -1;
    EXPECT_EQ(zoomStepFor(4, 0, &w68), 1);
    EXPECT_EQ(zoomStepFor(4, 9.99, &w68), 10);
    EXPECT_EQ(zoomStepFor(4, 10, &w68), 10);
    EXPECT_EQ(zoomStepFor(5, 2.5, &w68), 4);
    EXPECT_EQ(zoomStepFor(5, 9.0, &w68), 17);
    EXPECT_EQ(zoomStepFor(3, 6.99, &w68), 2);
    EXPECT_DOUBLE_EQ(zoomFromStep(5, 4), 0.25);
    EXPECT_DOUBLE_EQ(zoomFromStep(5, 17), 0.9);
    EXPECT_DOUBLE_EQ(zoomFromStep(3, 10), 1.0);
    EXPECT_DOUBLE_EQ(zoomFromStep(4, 11), 1.0);
}

}  // namespace
