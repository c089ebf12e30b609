/* SPDX-License-Identifier: MIT
 *
 * The camera processor: block transfer with retries and the reflect handshake, one accessor for every
 * register field, and the conversions between register codes and physical units.
 *
 * Transfers use gtI2cHndl, which must be open, and process-wide scratch buffers: one thread at a time.
 */
#ifndef KELISP_ISP_CXD3193_AR_H
#define KELISP_ISP_CXD3193_AR_H

#include "kelisp/decls.h"

#include <stdint.h>

KEL_DECLS_BEGIN

/** A register transfer failed, or a value or address is outside what the operation accepts. */
#define CXD3193AR_FAILED (-6)

/** The information gate of the live readouts could not be closed. */
#define CXD3193AR_GATE_OPEN (-7)

/** An exposure compensation (or its code) is out of range. */
#define CXD3193AR_BAD_EV (-99)

/* ---- Block transfer ---- */

extern uint8_t gbRegAddr[256];    /**< scratch: register addresses of the transfer under way */
extern uint8_t gbRegValue[256];   /**< scratch: register values of the transfer under way */
extern int32_t giI2cErrCount;     /**< failed transfer attempts since the process began; never reset */
extern int32_t giI2cErrRetry;     /**< retries after a failed attempt; 0 at start, set by camStat -t */
extern int32_t giI2cReadErrCount; /**< printed by the stress test; nothing increments it */

/**
 * Reads `count` consecutive registers in one block. Every attempt is followed by a 1 ms pause; a failed one
 * is printed on standard error, counted, logged (CXD3193AR_LogI2cErr) and repeated up to giI2cErrRetry times.
 *
 * @param firstReg  first register address
 * @param dest      receives `count` bytes; untouched on failure
 * @param count     1 to 32
 * @return 0 or CXD3193AR_FAILED; after a failed transfer errno is the device's
 */
int CXD3193AR_Read(uint8_t firstReg, uint8_t *dest, int count);

/**
 * Writes `count` consecutive registers of one reflect group in one block. First waits until the reflect
 * registers 0x20 to 0x22 read zero (poll every 10 ms, for at most 5000 ms and 501 polls); retries, messages
 * and pauses are those of CXD3193AR_Read. Registers already written stay so when a block fails.
 *
 * @param firstReg  first register address
 * @param src       `count` bytes
 * @param count     1 to 256. The transfer record's count is one byte: 256 is sent as 0 and so writes nothing.
 * @return 0 or CXD3193AR_FAILED; errno is then the device's, or ETIME where the wait ran out
 */
int CXD3193AR_Write(uint8_t firstReg, const uint8_t *src, int count);

/**
 * Appends one line to "/mnt/nand/I2cErr.csv": local date and time, attempt,
 * elapsed milliseconds, error count. The file is opened and closed for each
 * line, so that the line has left the process when the call returns. A last line
 * that was cut, as by a full flash, is ended first.
 *
 * @param attempt    0 for the first attempt of a transfer, 1 for its first retry, ...
 * @param errCount   giI2cErrCount after this failure
 * @param elapsedMs  milliseconds from the start of the transfer's first attempt
 * @return 0, or -1 after "fopen failed!\n" on standard error
 */
int CXD3193AR_LogI2cErr(int attempt, int errCount, int64_t elapsedMs);

/** The reflect group that register `reg` belongs to, as its bit; 0 for a register outside all groups. */
uint8_t CXD3193AR_ReflectBit(uint8_t reg);

/* ---- Register fields ---- */

/*
 * One accessor per row of registerMap.def. Values are right-aligned (a field of bits 5:4 is 0 to 3).
 *
 *   int CXD3193AR_Get_<name>(uint8_t *value)
 *       reads the register; *value = the field, shifted to bit 0
 *   int CXD3193AR_Set_<name>(const uint8_t *value)
 *       writes the field; bits of *value that do not fit are dropped
 *   int CXD3193AR_Info_<name>(uint8_t *value)
 *       live readout; first switches the information output back to 0 (register 0xCC) when the mirror infoOut
 *       says that it is not
 *
 * 16-bit fields take uint16_t, blocks an array of the row's length. All return 0 or the status of the
 * transfer that failed (CXD3193AR_FAILED); Info accessors also CXD3193AR_GATE_OPEN. On failure outputs and
 * mirrors stay as they were. The accessors print nothing of their own.
 */
#define KEL_FIELD(reg, high, low, name, setter, mirror, ...)                                                 \
    int CXD3193AR_Get_##name(uint8_t *value);                                                                \
    int CXD3193AR_Set_##name(const uint8_t *value);
#define KEL_WORD(reg, name, ...)                                                                             \
    int CXD3193AR_Get_##name(uint16_t *value);                                                               \
    int CXD3193AR_Set_##name(const uint16_t *value);
#define KEL_BLOCK(reg, length, name, masks, ...)                                                             \
    int CXD3193AR_Get_##name(uint8_t *values);                                                               \
    int CXD3193AR_Set_##name(const uint8_t *values);
#define KEL_READOUT(reg, high, low, name, ...) int CXD3193AR_Info_##name(uint8_t *value);
#define KEL_READOUT_WORD(reg, bits, name, ...) int CXD3193AR_Info_##name(uint16_t *value);
#include "kelisp/registerMap.def"

/** Reads both modes of register 0x53: bit 0 automatic noise reduction, bit 1 day/night switching. */
int CXD3193AR_Get_NrDnMode(uint8_t *nr, uint8_t *dayNight);

/**
 * Writes register 0x53 whole as nr + 2 x dayNight (bits 7:2 become 0).
 *
 * @return 0, or CXD3193AR_FAILED, also for an 8-bit sum above 3 (nothing is written then)
 */
int CXD3193AR_Set_NrDnMode(const uint8_t *nr, const uint8_t *dayNight);

/**
 * Two registers from `startReg`: 0xA4 to 0xA7 keep 6 and 5 bits, 0xA8 to 0xAB 7 and 7. Any other start gives
 * CXD3193AR_FAILED: the setter before, the getter after its transfer.
 */
int CXD3193AR_Get_PairA4(uint8_t startReg, uint8_t *values);
int CXD3193AR_Set_PairA4(uint8_t startReg, const uint8_t *values);

/** 30 registers from `startReg`: values 0 to 2 keep 7 bits, values 3 to 29 keep 5. */
int CXD3193AR_Get_Tbl30(uint8_t startReg, uint8_t *values);
int CXD3193AR_Set_Tbl30(uint8_t startReg, const uint8_t *values);

/** The luminance gamma curve: CXD3193AR_Set_Tbl30 at 0x75. */
int CXD3193AR_Set_YGamma(const uint8_t *values);

/* ---- Conversions: pure functions, safe from any thread ---- */

/** One row of a gain table; row r stands for register code r, and gains ascend. */
typedef struct GainTableEntry {
    uint8_t regValue; /**< register code */
    double gain;      /**< gain factor, rounded to three decimals */
} GainTableEntry;

#define CXD3193AR_WB_ROWS 256
#define CXD3193AR_AGAIN_ROWS 193

/** White-balance gains 0.5 to 7.938: four octaves of 64 codes, linear within each. Row 141 holds 2.404. */
extern const GainTableEntry gtWbTable[CXD3193AR_WB_ROWS];

/**
 * Analog gains 1.0 to 7.953: three octaves of 64 codes,
 * 128 / (128 - m) within each; the last row holds 7.953.
 */
extern const GainTableEntry gtAgainTable[CXD3193AR_AGAIN_ROWS];

/** Gain of a white-balance code. */
double CXD3193AR_WbTable_RegValue2Gain(uint8_t code);

/**
 * Code (0 to 255) of the largest white-balance gain not above `gain`;
 * CXD3193AR_FAILED outside 0.5 to 8.0; NaN gives 0.
 */
int CXD3193AR_WbTable_Gain2RegValue(double gain);

/** Gain of an analog-gain code; 0.0 for codes above 192. */
double CXD3193AR_AgainTable_RegValue2Again(uint8_t code);

/**
 * Code (0 to 192) of the largest analog gain not above `gain`;
 * CXD3193AR_FAILED outside 1.0 to 8.0; NaN gives 0.
 */
int CXD3193AR_AgainTable_Again2RegValue(double gain);

/** Digital gain of a code, in units of 1/8. */
double CXD3193AR_RegValue2Dgain(unsigned code);

/** Code of a digital gain: gain x 8 truncated, low 8 bits kept; negative gains and NaN give 0. */
uint8_t CXD3193AR_Dgain2RegValue(double gain);

/**
 * Exposure compensation of a code in EV: steps of 0.25 below code 16
 * (EV 0), 0.2 above; -99.0 outside 6 to 26.
 */
double CXD3193AR_RegValue2Ev(unsigned code);

/** Code (6 to 26) of an exposure compensation in EV; CXD3193AR_BAD_EV outside -2.5 to +2.0 (and for NaN). */
int CXD3193AR_Ev2RegValue(double ev);

/** Decibels to a gain factor, 10^(dB / 20), and back, 20 x log10(gain). */
double CXD3193AR_Db2Gain(double decibels);
double CXD3193AR_Gain2Db(double gain);

KEL_DECLS_END

#endif
