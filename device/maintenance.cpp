// Reboot and factory default, left to the camera's control process through
// a command word once the answer is complete, and the system log.
#include "frame/frame.h"
#include "frame/request_values.h"
#include "state/shm_words.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <string.h>

#define COMMAND_REBOOT 1
#define COMMAND_HARD_DEFAULT 2
#define COMMAND_SOFT_DEFAULT 3

void SystemReboot()
{
    if (shmWord(WS_MSG_NUM) != 0)
        sleepMs(3000);
    setResponse("<tds:SystemRebootResponse><tds:Message>Rebooting in 20 seconds.</tds:Message>"
                "</tds:SystemRebootResponse>");
    setShmWord(MAINTENANCE_WORD, COMMAND_REBOOT);
}

void SetDefault()
{
    if (shmWord(WS_MSG_NUM) != 0)
        sleepMs(3000);
    char kind[33];
    if (requestText("tds:FactoryDefault", kind, 33) != Read::Value)
        return;
    setResponse("<tds:SetSystemFactoryDefaultResponse></tds:SetSystemFactoryDefaultResponse>");
    if (strcmp(kind, "Hard") == 0)
        setShmWord(MAINTENANCE_WORD, COMMAND_HARD_DEFAULT);
    else if (strcmp(kind, "Soft") == 0)
        setShmWord(MAINTENANCE_WORD, COMMAND_SOFT_DEFAULT);
}

void GetSystemLog()
{
    char type[65];
    Read read = requestTextEither("tt:LogType", "LogType", type, 65);
    if (read == Read::Refused)
        return;
    if (read == Read::Absent) {
        writeReceiverFault2("InvalidArgs", "LogTypeUnavailable", "There is no LogType information.",
                            "There is no LogType information.");
        return;
    }
    // The memory report stands in for the system log on this camera.
    const char* file = strcmp(type, "System") == 0 ? "/proc/meminfo"
                     : strcmp(type, "Access") == 0 ? "/tmp/access.log" : 0;
    if (!file) {
        writeReceiverFault2("InvalidArgs", "LogTypeUnavailable", "There is an error LogType information.",
                            "There is an error LogType information.");
        return;
    }
    FILE* f = fopenRoot(file, "r");
    if (!f) {
        G_httpAck = 400;
        setResponse("<tds:GetSystemLogResponse><tds:SystemLog></tds:SystemLog></tds:GetSystemLogResponse>");
        return;
    }
    setResponse("<tds:GetSystemLogResponse><tds:SystemLog><tt:String>");
    static const char CLOSE[] = "</tt:String></tds:SystemLog></tds:GetSystemLogResponse>";
    // A log longer than the answer holds is cut, never the closing tags.
    appendFileTextToResponse(f, sizeof CLOSE);
    fclose(f);
    appendMarkup(CLOSE);
}
