/* Ids of the engine's message texts: one list for the code that loads them and for the string
   tables of the language libraries (TAMBRELL.DLL, DEUOV32.DLL) and the engine's own resources.
   Plain preprocessor definitions, so that the resource compiler reads this file too. */
#pragma once

/* A section one side of a comparison lacks. */
#define IDS_SYSINFO_NOT_IN_OLDER 249
#define IDS_SYSINFO_NOT_IN_NEWER 250
#define IDS_SYSINFO_NOT_IN_EITHER 251
/* The live system's name in a report head. */
#define IDS_CURRENT_SYSTEM 512
/* System-information labels and values. */
#define IDS_LABEL_VENDOR 1359
#define IDS_LABEL_PROCESSOR 1360
#define IDS_LABEL_COPROCESSOR 1361
#define IDS_LABEL_MEMORY 1362
#define IDS_LABEL_WINDOWS 1363
#define IDS_NOT_AVAILABLE 1368
#define IDS_COPROCESSOR_PRESENT 1369
#define IDS_COPROCESSOR_ABSENT 1370
/* Drives. */
#define IDS_DRIVE_ABSENT 1376
#define IDS_REMOVABLE_MEDIA 1377
#define IDS_SPACE_UNIT 1378
#define IDS_DRIVES_NOT_IN_EITHER 1379
#define IDS_DRIVES_NOT_IN_OLDER 1380
#define IDS_DRIVES_NOT_IN_NEWER 1381
/* Difference report head and section headings. */
#define IDS_REPORT_TITLE 1537
#define IDS_REPORT_RULE 1538
#define IDS_REPORT_OLDER 1539
#define IDS_REPORT_NEWER 1540
#define IDS_HEADING_FILES 1541
#define IDS_HEADING_SYSINFO 1542
#define IDS_HEADING_DRIVES 1543
#define IDS_HEADING_DIRECTORIES 1544
#define IDS_HEADING_REGISTRY 1545
#define IDS_HEADING_ASSETS 1550
/* The reboot countdown (engine's own resources). */
#define IDD_REBOOT_COUNTDOWN 101
#define IDS_REBOOT_BUTTON 8700
#define IDS_REBOOT_MESSAGE 8701
