/* SPDX-License-Identifier: MIT
 *
 * The smallest C program on the library: opens the link to the camera processor and reads two registers, one of them in
 * physical units.
 */
#include <kelisp.h>
#include <stdio.h>

int main(void)
{
    uint8_t sensorType = 0;
    if (DrvI2cOpen(&gtI2cHndl, 0xE2) != 0) {
        perror("camera bus");
        return 1;
    }
    const int status = CXD3193AR_Get_CisType(&sensorType);
    const double gain = GetMaxAgn();
    DrvI2cClose(&gtI2cHndl);
    if (status != 0 || gain < 0.0) {
        fputs("the camera processor does not answer\n", stderr);
        return 1;
    }
    printf("sensor type %u, analog gain up to %.3f\n", sensorType, gain);
    return 0;
}
