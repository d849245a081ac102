// Keys of a printer's device info. Constants, any thread.
#pragma once

namespace zul {

inline constexpr const char* HOLVEN_TBPrinterManufacturer = "manufacturer";
inline constexpr const char* HOLVEN_TBPrinterModel = "model";
inline constexpr const char* HOLVEN_TBPrinterStatus = "printerStatus";
inline constexpr const char* HOLVEN_TBPrinterFirmwareVersion = "firmwareVersion";
inline constexpr const char* HOLVEN_TBPrinterFirmwareVersionPrevious = "firmwareVersionPrevious";
inline constexpr const char* HOLVEN_TBPrinterSerialNumber = "printerSerialNumber";
inline constexpr const char* HOLVEN_TBPrinterColorTableVersion = "colorTableVersion"; // also of the 300 table
inline constexpr const char* HOLVEN_TBPrinterColorTableVersion600 = "colorTableVersion600";
inline constexpr const char* HOLVEN_TBPrinterColorTableVersion610 = "colorTableVersion610";
inline constexpr const char* HOLVEN_TBPrinterColorTableVersion620 = "colorTableVersion620";
inline constexpr const char* HOLVEN_TBPrinterColorTableVersion300HD = "colorTableVersion300HD";
inline constexpr const char* HOLVEN_TBPrinterColorTableVersion600HD = "colorTableVersion600HD";
inline constexpr const char* HOLVEN_TBPrinterColorTableVersion610HD = "colorTableVersion610HD";
inline constexpr const char* HOLVEN_TBPrinterColorTableVersion620HD = "colorTableVersion620HD";
inline constexpr const char* HOLVEN_TBPrinterColorTableChecksum300 = "colorTableChecksum300"; // also of the only table
inline constexpr const char* HOLVEN_TBPrinterColorTableChecksum600 = "colorTableChecksum600";
inline constexpr const char* HOLVEN_TBPrinterColorTableChecksum610 = "colorTableChecksum610";
inline constexpr const char* HOLVEN_TBPrinterColorTableChecksum620 = "colorTableChecksum620";
inline constexpr const char* HOLVEN_TBPrinterColorTableChecksum300HD = "colorTableChecksum300HD";
inline constexpr const char* HOLVEN_TBPrinterColorTableChecksum600HD = "colorTableChecksum600HD";
inline constexpr const char* HOLVEN_TBPrinterColorTableChecksum610HD = "colorTableChecksum610HD";
inline constexpr const char* HOLVEN_TBPrinterColorTableChecksum620HD = "colorTableChecksum620HD";
inline constexpr const char* HOLVEN_TBPrinterLifetimeCounter = "TBPrinterLifetimeCounter";
inline constexpr const char* HOLVEN_ZUL_USB_ISerialisSet = "HOLVEN_ZUL_USB_ISerialisSet";
inline constexpr const char* HOLVEN_TBPrinterDeviceFirmwareStatus = "deviceFirmwareStatus";
inline constexpr const char* kUpdatedSerialNumber = "updatedSerialNumber"; // by its device ID, when its update began
inline constexpr const char* cFirmwareFilenames = "firmwareFilenames";
inline constexpr const char* cFirmwareFileHashes = "firmwareFileHash"; // singular in the text, plural in the name

} // namespace zul
