// The request frame end to end: readiness, lengths, envelope, dispatch and
// the device information answers.
#include "tests/fixture.h"

#include <sys/shm.h>
#include <tinyxml.h>

using Frame = CameraTest;

static const char CONTENT_TYPE[] = "Content-type: application/soap+xml; charset=utf-8";

TEST_F(Frame, ServiceNotReadyOrBadLengthIsAnswered400WithoutReadingTheBody)
{
    struct Case { int ready; std::string length; };
    for (const Case& c : {Case{0, ""}, Case{2, ""}, Case{1, "-"}, Case{1, "abc"}, Case{1, "-5"},
                          Case{1, "99999999999"}, Case{1, "65537"}}) {
        word(SERVICE_READY) = c.ready;
        CgiResult r = run(soap("<tds:GetDeviceInformation/>"), c.length);
        SCOPED_TRACE(std::to_string(c.ready) + " length " + c.length);
        EXPECT_EQ(r.status, 400);
        EXPECT_EQ(r.envelopeBody, "");
        EXPECT_EQ(r.headers, std::string("Status: 400 Bad Request\r\n") + CONTENT_TYPE);
    }
    // A length that claims less than the body reads only that much: a cut body is not SOAP.
    word(SERVICE_READY) = 1;
    CgiResult cut = run(soap("<tds:GetDeviceInformation/>"), "20");
    EXPECT_EQ(cut.status, 400);
    EXPECT_EQ(cut.envelopeBody, "");
}

TEST_F(Frame, GetDeviceInformationAnswersTheFactoryIdentityByteForByte)
{
    CgiResult r = call("<tds:GetDeviceInformation/>");
    EXPECT_EQ(r.headers, std::string("Status: 200 OK\r\n") + CONTENT_TYPE);
    EXPECT_EQ(r.envelopeBody,
              "<tds:GetDeviceInformationResponse><tds:Manufacturer>Camera</tds:Manufacturer>"
              "<tds:Model>IP Dome Camera A5S</tds:Model><tds:FirmwareVersion>1.0.0</tds:FirmwareVersion>"
              "<tds:SerialNumber>00:1A:2B:3C:4D:5E</tds:SerialNumber><tds:HardwareId>001</tds:HardwareId>"
              "</tds:GetDeviceInformationResponse>");
    TiXmlDocument doc;
    doc.Parse(r.body.c_str());
    EXPECT_FALSE(doc.Error()) << doc.ErrorDesc();
}

TEST_F(Frame, GetCapabilitiesSectionsFollowCategoriesAndWords)
{
    CgiResult all = call("<tds:GetCapabilities/>");
    EXPECT_EQ(all.status, 200);
    for (const char* section : {"<tt:Analytics>", "<tt:Device>", "<tt:Events>", "<tt:Imaging>", "<tt:Media>"})
        EXPECT_NE(all.envelopeBody.find(section), std::string::npos) << section;
    EXPECT_EQ(all.envelopeBody.find("<tt:PTZ>"), std::string::npos);  // words 16 and 17 are 0
    EXPECT_NE(all.envelopeBody.find("<tt:XAddr>http://192.168.0.100/onvif/device_service</tt:XAddr>"),
              std::string::npos);

    CgiResult ptz = call("<tds:GetCapabilities><tds:Category>PTZ</tds:Category></tds:GetCapabilities>");
    EXPECT_EQ(ptz.status, 400);
    EXPECT_EQ(ptz.envelopeBody,
              "<SOAP-ENV:Fault><SOAP-ENV:Code><SOAP-ENV:Value>SOAP-ENV:Receiver</SOAP-ENV:Value>"
              "<SOAP-ENV:Subcode><SOAP-ENV:Value>ter:ActionNotSupported</SOAP-ENV:Value>"
              "<SOAP-ENV:Subcode><SOAP-ENV:Value>ter:NoSuchService</SOAP-ENV:Value></SOAP-ENV:Subcode>"
              "</SOAP-ENV:Subcode></SOAP-ENV:Code><SOAP-ENV:Reason><SOAP-ENV:Text xml:lang=\"en\">"
              "The service is not supported</SOAP-ENV:Text></SOAP-ENV:Reason><SOAP-ENV:Detail>"
              "The requested WSDL service category is not supported by the NVT</SOAP-ENV:Detail></SOAP-ENV:Fault>");

    word(PAN_TILT_WORD) = PAN_TILT_RS485;
    word(IO_LAYOUT_WORD) = IO_LAYOUT_HEAD;
    CgiResult two = call("<tds:GetCapabilities><tds:Category>Device</tds:Category>"
                         "<tds:Category>PTZ</tds:Category></tds:GetCapabilities>");
    EXPECT_EQ(two.status, 200);
    EXPECT_NE(two.envelopeBody.find("<tt:IO><tt:InputConnectors>4</tt:InputConnectors>"
                                    "<tt:RelayOutputs>1</tt:RelayOutputs></tt:IO>"), std::string::npos);
    EXPECT_NE(two.envelopeBody.find("<tt:PTZ>"), std::string::npos);
    EXPECT_EQ(two.envelopeBody.find("<tt:Media>"), std::string::npos);

    word(MODEL_CODE_WORD) = MODEL_NO_IMAGING;
    EXPECT_EQ(call("<tds:GetCapabilities><tds:Category>Imaging</tds:Category></tds:GetCapabilities>").status, 400);
}

TEST_F(Frame, UnknownActionGetsTheGenericFaultWithTheFullNamespaceSet)
{
    CgiResult r = call("<tds:GetServices><tds:IncludeCapability>false</tds:IncludeCapability></tds:GetServices>");
    EXPECT_EQ(r.headers, std::string("Status: 500 Internal Server Error\r\n") + CONTENT_TYPE);
    EXPECT_NE(r.body.find("xmlns:tmd=\"http://www.onvif.org/ver10/deviceIO/wsdl\" "
                          "xmlns:dn=\"http://www.onvif.org/ver10/network/wsdl\" "
                          "xmlns:tns1=\"http://www.onvif.org/ver10/topics\">"), std::string::npos);
    EXPECT_EQ(r.envelopeBody.size(), 464u);
    EXPECT_NE(r.envelopeBody.find("ter:Action"), std::string::npos);
    TiXmlDocument doc;
    doc.Parse(r.body.c_str());
    EXPECT_FALSE(doc.Error()) << doc.ErrorDesc();
}

TEST_F(Frame, RebootAndFactoryDefaultCloseTheConnection)
{
    for (const char* action : {"<tds:SystemReboot/>", "<tds:SetSystemFactoryDefault/>"}) {
        CgiResult r = call(action);
        EXPECT_NE(r.headers.find("\r\nConnection: close\r\nContent-type:"), std::string::npos) << action;
    }
    EXPECT_EQ(call("<tds:GetDeviceInformation/>").headers.find("Connection"), std::string::npos);
}

TEST_F(Frame, BodiesThatAreLargeOrMalformedAreAnsweredWithoutACrash)
{
    std::string many;
    for (int i = 0; i < 300; ++i)
        many += "<tt:Item a=\"1\" b=\"2\">x</tt:Item>";
    CgiResult big = call("<tds:GetDeviceInformation>" + many + "</tds:GetDeviceInformation>");
    EXPECT_EQ(big.status, 400);  // more rows than the element tables hold
    EXPECT_EQ(big.envelopeBody, "");
    // No body element is a 400; an empty body element names no action, a 500.
    struct Case { std::string body; int status; };
    for (const Case& c : {Case{"not xml at all", 400}, Case{"<a/>", 400}, Case{"<e><s:Header/></e>", 400},
                          Case{"<e>\xc3", 400}, Case{"", 400}, Case{"<a><b/></a>", 500},
                          Case{"<e><b><GetDeviceInformation\xe2\x82", 400}}) {
        CgiResult r = run(c.body);
        EXPECT_EQ(r.status, c.status) << c.body;
    }
}

TEST_F(Frame, MissingSegmentIsAServiceThatIsNotReady)
{
    shmctl(segmentId, IPC_RMID, nullptr);
    CgiResult r = call("<tds:GetDeviceInformation/>");
    EXPECT_EQ(r.status, 400);
    EXPECT_EQ(r.envelopeBody, "");
}

TEST_F(Frame, AddressesComeFromTheRootsNetworkFileOnly)
{
    writeFile("etc/sysconfig/network.conf", "root.Network.IPAddress=10.1.2.3\n");
    EXPECT_EQ(call("<tds:GetWsdlUrl/>").envelopeBody,
              "<tds:GetWsdlUrlResponse><tds:WsdlUrl>http://10.1.2.3/wsdl/onvif/</tds:WsdlUrl></tds:GetWsdlUrlResponse>");
    // Anything but an address is never printed into the answers.
    writeFile("etc/sysconfig/network.conf", "root.Network.IPAddress=<x>\n");
    EXPECT_NE(call("<tds:GetCapabilities/>").envelopeBody.find("http://0.0.0.0/onvif/device_service"),
              std::string::npos);
}
