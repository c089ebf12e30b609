/* SPDX-License-Identifier: MIT
 *
 * Sensor control in physical units: initialisation, exposure and gain, white balance, picture, day/night, and
 * the live readouts of the camera processor.
 *
 * Unless a line says "silent", a function that fails prints the location line and "[kel_isp] <failed step>
 * failed.\n" on standard error and returns the step's negative status: CXD3193AR_FAILED (-6) from a
 * transfer. Getters of physical values return it as a double; values are not negative, except where a line
 * says so, so the sign tells. One thread at a time; SensorInit comes first.
 */
#ifndef KELISP_ISP_SENSOR_H
#define KELISP_ISP_SENSOR_H

#include "kelisp/decls.h"
#include "kelisp/sensorInfo.h"

KEL_DECLS_BEGIN

/** A rejected argument, or a sensor other than IMX076. */
#define KEL_SENSOR_REJECTED (-9)

/** An exposure longer than this, in microseconds, takes whole frames (a little above 1/30 s). */
#define KEL_LONG_EXPOSURE_US 33335.0

/* ---- Initialisation and reset ---- */

/**
 * Zeroes gtSensorInfo, reads the sensor type (register 0x0E), stores the timing
 * preset of type 6 (30 fps) or 7 (60 fps) and reads the mirrored fields. With
 * gfDebugFlag set, prints the record on standard error at the end.
 *
 * @return 0; KEL_SENSOR_REJECTED after "[kel_isp] Sensor is not IMX076.\n"; the status of a failed read
 */
int SensorInit(void);

/**
 * Pulses the sensor's reset line: low for 2 ms, then high, then 20 ms for the sensor to come up. The whole
 * pulse is made even when the first request fails.
 *
 * @return 0, or the status of the first GPIO request that failed
 */
int ResetSensor(void);

/* ---- Exposure and gain ---- */

/**
 * Manual exposure time in microseconds: lines x lineTimeUs - offsetTimeUs.
 * A register of 0 lines is negative.
 */
double GetMeExpTime(void);

/** Manual analog gain as a factor; 0.0 when the register holds a code above 192. */
double GetMnlAgn(void);

/** Manual digital gain as a factor. */
double GetMnlDgn(void);

/**
 * Lower and upper limit of the automatic exposure's analog gain; 0.0
 * when the register holds a code above 192.
 */
double GetMinAgn(void);
double GetMaxAgn(void);

/** Upper limit of the automatic exposure's digital gain. */
double GetMaxDgn(void);

/**
 * Sets the manual exposure time: the long-exposure frame count, then the lines. Up to KEL_LONG_EXPOSURE_US
 * the frame count is 0; above, the time is rounded to whole frames. A request longer than the two registers
 * can hold (127 frames, 65535 lines) is held at the longest that fits: with both presets the 65535 lines
 * limit first, at 59 frames (type 6) and 117 (type 7). A negative time sets 0 lines.
 *
 * @param timeUs  microseconds
 * @return 0 or the failed step's status; the frame count may be written without the lines
 */
int SetMeExpTime(double timeUs);

/** Sets the manual analog gain, clamped to 1.0 to 7.953. */
int SetMnlAgn(double gain);

/** Sets the manual digital gain, clamped to 1.0 to 31.875. */
int SetMnlDgn(double gain);

/** Sets the automatic exposure's highest analog gain, clamped to 1.0 to 7.953. */
int SetMaxAgn(double gain);

/** Sets the automatic exposure's highest digital gain, clamped to 1.0 to 31.875. */
int SetMaxDgn(double gain);

/** Sets the automatic exposure's lowest analog gain; outside 1.0 to 8.0 it fails with CXD3193AR_FAILED. */
int SetMinAgn(double gain);

/** SetMinAgn with the gain clamped to 1.0 to 7.953. */
int SetMinAgain(double gain);

/**
 * Sets the gain ceiling of the automatic exposure from one total gain, clamped to 1.0 to 253.501875: analog
 * gain as far as it goes, digital gain for the rest. NaN counts as 1.0.
 */
int SetMaxGain(double totalGain);

/**
 * Sets the manual gain from one total gain, split like SetMaxGain's. Outside 1.0 to 253.501875 (or NaN) it
 * prints "[kel_isp] Gain < Min ||  Gain > Max.\n", writes nothing and returns KEL_SENSOR_REJECTED.
 */
int SetManGain(double totalGain);

/** SetMaxGain and SetManGain of the total gain 2^(index + 1) for an index 0 to 7, of 1.0 for any other. */
int SetMaxGainIndex(int index);
int SetManGainIndex(int index);

/* ---- White balance, picture, day/night ---- */

/** Sets the manual white-balance gain, red or blue; outside 0.5 to 8.0 it fails with CXD3193AR_FAILED. */
int SetMnlWbrGain(double gain);
int SetMnlWbbGain(double gain);

/** Manual white-balance gain, red or blue. */
double GetMnlWbrGain(void);
double GetMnlWbbGain(void);

/** Brightness 0 to 255 (clamped): below 128 the gamma curve darkens, above the luminance offset brightens. */
int SetBrightness(int level);

/** The gamma curve of a brightness level 0 to 255 (clamped), 30 registers in one transfer. Silent. */
int SetYGamma(int level);

/** Contrast 0 to 255 (clamped); 96 to 160 move the luminance gain over 0 to 64. */
int SetContrast(int level);

/** Saturation 0 to 255 (clamped); 104 to 152 move both colour gains over 0 to 48. */
int SetSaturation(int level);

/** Sharpness 0 to 255 (clamped); 56 to 119 move the aperture gain over 0 to 63, its positive gain follows. */
int SetSharpness(int level);

/**
 * Wide dynamic range 0 (off) to 3; any other index prints "Wdr Index"
 * as the failed step: KEL_SENSOR_REJECTED.
 */
int SetWdr(int index);

/** Exposure compensation in EV, -2.5 to +2.0; outside it fails with CXD3193AR_BAD_EV. */
int SetBlc(double ev);

/** Exposure compensation in EV; -99.0 when the register holds a code outside 6 to 26. */
double GetBlc(void);

/**
 * SetBlc of an index 0 to 8, which stands for -2.0 to +2.0 EV in half
 * steps; any other index is 0 EV. Silent itself.
 */
int SetBlcIndex(int index);

/**
 * Sets automatic noise reduction and day/night switching (nonzero: on)
 * by writing register 0x53 whole. Silent.
 */
int SetNfAutoMode(int nrAuto, int dayNight);

/**
 * Reads automatic noise reduction and day/night switching as 0 or 1; outputs untouched on failure. Silent.
 */
int GetNrDnMode(unsigned *nrAuto, unsigned *dayNight);

/** Writes the noise-filter block: a fixed one for mode 1, else one of the level 0 to 44 (clamped). Silent. */
int SetNfManualLevel(int mode, int level);

/** Flip and mirror; nonzero: on. Silent. */
int SetFlip(int on);
int SetMirror(int on);

/** Switching levels between day and night, 0 to 255; outside KEL_SENSOR_REJECTED without a message. */
int SetNight2Day(int level);
int SetDay2Night(int level);

/* ---- Live readouts ---- */

/*
 * What the processor's automatic exposure and white balance are doing now. Besides transfer failures they
 * pass on CXD3193AR_GATE_OPEN (-7). A readout may switch the information output (register 0xCC) back to 0.
 */

/** Exposure time in microseconds. */
double InfoExpTime(void);

/**
 * Long-exposure time in microseconds; counts above
 * KEL_LONG_EXPOSURE_US, below it there is no long exposure.
 */
double InfoLongExpTime(void);

/** Analog gain as a factor, 4096 / code; infinite when the processor reports code 0. */
double InfoAnlgGain(void);

/** Digital gain as a factor, code / 32. */
double InfoDgtlGain(void);

/** White-balance gain, red or blue, as a factor. */
double InfoWbrGain(void);
double InfoWbbGain(void);

/** Average raw level, 0 to 4095. */
int InfoRawAvg(void);

/** Day/night status code, 0 or 1. */
int InfoDnStatus(void);

/** Iris status code, 0 to 15. */
int InfoMirisStatus(void);

KEL_DECLS_END

#endif
