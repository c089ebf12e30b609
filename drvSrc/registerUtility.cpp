// SPDX-License-Identifier: MIT
//
// The register utility: reads, block-reads or writes registers of any slave from its own command line.
#include "kelisp/drvI2c.h"

#include "base/numbers.h"
#include "base/report.h"
#include "kelisp/osa.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace
{

constexpr char kModule[] = "drvSrc/drvI2c";

uint8_t gRegAddr[256];
uint8_t gValue8[256];
uint16_t gValue16[256];

/// What the command line asks for, but for the first register and the value to write.
struct Request {
    char action; // 'r', 'w' or 'b'
    uint8_t slaveAddr;
    uint8_t count;
    uint8_t dataSize;
};

/// One printf under the print lock: lines of other threads do not get into it.
[[gnu::format(printf, 1, 2)]] void PrintLocked(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    OSA_mutexLock(&gOSA_printfLock);
    vprintf(format, args);
    OSA_mutexUnlock(&gOSA_printfLock);
    va_end(args);
}

void PrintLine(const char *text)
{
    PrintLocked("%s\n", text);
}

void DrvI2cUsage(const char *program)
{
    PrintLine(" ");
    PrintLine(" I2C Test Utility, \r");
    PrintLocked(" Usage: %s -r|-w|-b <devAddrInHex> <regAddrInHex> <regValueInHex or numRegsToReadInDec> "
                "<regSizeInBytes>\r\n",
                program);
    PrintLine(" ");
}

uint8_t DecimalLow8(const char *text)
{
    return static_cast<uint8_t>(kel::ParseInt32(text));
}

bool IsAction(const char *word)
{
    return strcmp(word, "-r") == 0 || strcmp(word, "-b") == 0 || strcmp(word, "-w") == 0;
}

/// Reads the words behind the program name; the first register and the value of a write go straight into the
/// buffers.
Request ParseRequest(int argc, char **argv)
{
    Request request = {argv[1][1], static_cast<uint8_t>(HexStrToUint(argv[2])), 4, 1};
    gRegAddr[0] = argc > 3 ? static_cast<uint8_t>(HexStrToUint(argv[3])) : 0;
    gValue8[0] = 0;
    gValue16[0] = 0;
    if (argc > 5)
        request.dataSize = DecimalLow8(argv[5]);
    if (request.dataSize == 0 || request.dataSize > 2)
        request.dataSize = 1;
    if (argc > 4) {
        if (request.action != 'w')
            request.count = DecimalLow8(argv[4]);
        else if (request.dataSize == 1)
            gValue8[0] = static_cast<uint8_t>(HexStrToUint(argv[4]));
        else
            gValue16[0] = static_cast<uint16_t>(HexStrToUint(argv[4]));
    }
    return request;
}

void FillAddresses(const Request &request)
{
    for (unsigned i = 1; i < request.count; ++i)
        gRegAddr[i] = static_cast<uint8_t>(gRegAddr[0] + i);
}

void PrintValues(const Request &request)
{
    for (unsigned i = 0; i < request.count; ++i)
        if (request.dataSize == 1)
            PrintLocked(" I2C: 0x%02x = 0x%02x \n", gRegAddr[i], gValue8[i]);
        else
            PrintLocked(" I2C: 0x%02x = 0x%04x \n", gRegAddr[i], gValue16[i]);
}

void PrintOutcome(const Request &request, int status, const char *failure)
{
    PrintLine(" ");
    if (status < 0)
        PrintLine(failure);
    else
        PrintValues(request);
    PrintLine(" ");
}

int ReadRegisters(DrvI2cHndl *handle, const Request &request)
{
    FillAddresses(request);
    const int status = request.dataSize == 1 ? DrvI2cRead8(handle, gRegAddr, gValue8, request.count)
                                             : DrvI2cRead16(handle, gRegAddr, gValue16, request.count);
    PrintOutcome(request, status, " I2C: Read ERROR !!!");
    return 0;
}

int ReadBlock(DrvI2cHndl *handle, const Request &request)
{
    FillAddresses(request);
    if (request.dataSize == 2) {
        PrintLine(" I2C ERROR: Only Read 8 bits for block !!!");
        return -1;
    }
    const int status = DrvI2cReadBlk8(handle, gRegAddr, gValue8, request.count);
    PrintOutcome(request, status, " I2C: Read Block ERROR !!!");
    return 0;
}

int WriteRegister(DrvI2cHndl *handle, const Request &request)
{
    PrintLine(" ");
    const bool bytes = request.dataSize == 1;
    const int status =
        bytes ? DrvI2cWrite8(handle, gRegAddr, gValue8, 1) : DrvI2cWrite16(handle, gRegAddr, gValue16, 1);
    if (status < 0)
        PrintLine(" I2C: Write ERROR !!!");
    else
        PrintLine(bytes ? " I2C: DrvI2cWrite8 OK !!!" : " I2C: DrvI2cWrite16 OK !!!");
    PrintLine(" ");
    return 0;
}

int Perform(DrvI2cHndl *handle, const Request &request)
{
    switch (request.action) {
    case 'r':
        return ReadRegisters(handle, request);
    case 'b':
        return ReadBlock(handle, request);
    default:
        return WriteRegister(handle, request);
    }
}

} // namespace

uint32_t HexStrToUint(const char *text)
{
    uint32_t value = 0;
    for (; *text != '\0'; ++text) {
        uint32_t digit = 0;
        if (*text >= '0' && *text <= '9')
            digit = static_cast<uint32_t>(*text - '0');
        else if (*text >= 'A' && *text <= 'F')
            digit = static_cast<uint32_t>(*text - 'A' + 10);
        else if (*text >= 'a' && *text <= 'f')
            digit = static_cast<uint32_t>(*text - 'a' + 10);
        value = value * 16 + digit;
    }
    return value;
}

int DrvI2cTestMain(int argc, char **argv)
{
    if (argc < 3 || !IsAction(argv[1])) {
        DrvI2cUsage(argc > 0 ? argv[0] : "drvI2cTest");
        return -1;
    }
    const Request request = ParseRequest(argc, argv);
    if (request.slaveAddr == 0) {
        PrintLine(" I2C: Invalid device address");
        DrvI2cUsage(argv[0]);
        return -1;
    }

    DrvI2cHndl handle;
    int status = DrvI2cOpen(&handle, request.slaveAddr);
    if (status < 0) {
        char message[32]; // without a line end: the text is fixed
        snprintf(message, sizeof(message), "DrvI2cOpen(%d)", request.slaveAddr);
        kel::ReportError(kModule, message);
        return status;
    }
    status = Perform(&handle, request);
    DrvI2cClose(&handle);
    return status;
}
