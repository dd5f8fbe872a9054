/*
 * vld_error.cpp: the process-wide error record and its message table.
 *
 * A failing function returns what VLD_setup_error returned: a row of the table,
 * with the formatted text in one static buffer. Nothing clears the record; a
 * later failure overwrites it, and callers that want to keep detail append.
 */
#include "vld_core.h"
#include "vld_error_internal.h"
#include "vln_thread.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

VLD_ERROR_REC VLD_error = {0, nullptr};

// Rows that no caller raises stay empty strings.
const char *VLD_errmsg[VLD_ERRMSG_ROWS] = {
    /*   0 */ "",
    /*   1 */ "Cannot open file \"%s\"",
    /*   2 */ "Cannot close file \"%s\"",
    /*   3 */ "Cannot create file \"%s\"",
    /*   4 */ "Cannot read from file \"%s\"",
    /*   5 */ "Cannot write to file \"%s\"",
    /*   6 */ "Cannot seek to position in file \"%s\"",
    /*   7 */ "VLD file \"%s\" has bad format",
    /*   8 */ "Invalid file type: \"%s\"",
    /*   9 */ "Null file or device specification",
    /*  10 */ "Raster request list not in ascending order",
    /*  11 */ "Could not allocate %d bytes of memory",
    /*  12 */ "Internal error: \"%s\"",
    /*  13 */ "Error while reading: \"%s\"",
    /*  14 */ "Unexpected End-Of-File while reading: \"%s\"",
    /*  15 */ "Unknown vector object type: \"%s\"",
    /*  16 */ "Incompatible coordinate systems",
    /*  17 */ "Unknown coordinate system type",
    /*  18 */ "Insufficient points for definition of region \"%s\"",
    /*  19 */ "Problem creating default stream",
    /*  20 */ "Invalid transform type",
    /*  21 */ "This function is not yet implemented",
    /*  22 */ "Invalid stream type",
    /*  23 */ "Bad byte order in dshdr",
    /*  24 */ "%s",
    /*  25 */ "Coordinate missing in algorithm: %s",
    /*  26 */ "Cannot rename file: \"%s\"",
    /*  27 */ "Directory \"%s\" is not writable",
    /*  28 */ "Environment variable \"%s\" not set",
    /*  29 */ "File \"%s\" not found in %s",
    /*  30 */ "Invalid coordinate space: %s",
    /*  31 */ "Geodetic transform error: \"%s\"",
    /*  32 */ "Cannot find region: \"%s\"",
    /*  33 */ "Cannot find directory: \"%s\"",
    /*  34 */ "Lines specified are outside dataset range",
    /*  35 */ "Cells specified are outside dataset range",
    /*  36 */ "Region \"%s\" already exists",
    /*  37 */ "Latitude/Longitude vector datasets not yet supported",
    /*  38 */ "Bad size for kernel \"%s\"\n(rows and columns must be odd)",
    /*  39 */ "No \"Name\" entry found for legend element with attribute string:\n'%s'",
    /*  40 */ "Could not find legend element file '%s.ldd' in $VORLAN/legendrules",
    /*  41 */ "Could not open Legend Rules definition directory for reading:\n'%s'",
    /*  42 */ "There is no legend item parameter with name '%s': invalid override",
    /*  43 */ "Too many levels of virtual datasets (>%d)\nProbably a recursion problem",
    /*  44 */ "Virtual dataset %s is empty (all bands turned off)",
    /*  45 */ "Cannot mmap dataset\n%s",
    /*  46 */ "Cannot unmap dataset\n%s",
    /*  47 */ "Raster Dataset required",
    /*  48 */ "Cannot use virtual dataset (%s)",
    /*  49 */ "%s",
    /*  50 */ "NULL file specification passed to statfs()",
    /*  51 */ "statfs() failed on %s",
    /*  52 */ "Cannot get status of file \"%s\"",
    /*  53 */ "Dataset data file size (%d) less than expected (%d)",
    /*  54 */ "Cannot mmap dataset \"%s\" for reading/writing, header not aligned (%d bytes)",
    /*  55 */ "Cannot find or open the resource file '%s'",
    /*  56 */ "Btree problems with a Galaxy resource file",
    /*  57 */ "Too many Galaxy resource files open",
    /*  58 */ "File is not a Galaxy Btree file",
    /*  59 */ "%s",
    /*  60 */ "Dynamic link init program %s returned error %d\n%s",
    /*  61 */ "Link init program returned too few (%d) parameters.\nParameters were: \"%s\".",
    /*  62 */ "VORLAN environment variable not set",
    /*  63 */ "Error loading algorithm",
    /*  64 */ "First open a window",
    /*  65 */ "Currently no algorithm",
    /*  66 */ "Algorithm file name null - use 'Save Algorithm As...'",
    /*  67 */ "Error saving algorithm",
    /*  68 */ "Nothing to delete",
    /*  69 */ "Nothing to append after",
    /*  70 */ "Nothing to insert before",
    /*  71 */ "Problem with default transform",
    /*  72 */ "Algorithm internally corrupt",
    /*  73 */ "Problem parsing color",
    /*  74 */ "Problem allocating color",
    /*  75 */ "Problem with null kernel",
    /*  76 */ "Error loading kernel",
    /*  77 */ "Error creating kernel",
    /*  78 */ "Error loading formula",
    /*  79 */ "Error creating formula",
    /*  80 */ "Error loading dataset",
    /*  81 */ "Please set $VLNDSDIR",
    /*  82 */ "Dataset directory null",
    /*  83 */ "Problem opening Dataset Directory",
    /*  84 */ "Dataset file not found",
    /*  85 */ "Dataset directory not found",
    /*  86 */ "No histogram available",
    /*  87 */ "Syntax error in generic formula:  %s",
    /*  88 */ "Generic formula parameter too large",
    /*  89 */ "Generic formula invalid zero parameter",
    /*  90 */ "Generic formula invalid overlay input number",
    /*  91 */ "Null formula pointer passed to function",
    /*  92 */ "Invalid destination type for this operation",
    /*  93 */ "No displays specified, using default display",
    /*  94 */ "Problem Opening Display",
    /*  95 */ "No suitable visual on display",
    /*  96 */ "Could not find display selected",
    /*  97 */ "Invalid shell type passed to function",
    /*  98 */ "Error loading Lookup Table",
    /*  99 */ "Desination chosen not found",
    /* 100 */ "Null destination passed to function",
    /* 101 */ "Problem obtaining dataset information",
    /* 102 */ "Dataset is not of raster type",
    /* 103 */ "Currently no dataset",
    /* 104 */ "Currently no dataset directory",
    /* 105 */ "Placement details outside range of dataset",
    /* 106 */ "Streaminput number in formula not found in overlay",
    /* 107 */ "Bandid info missing in overlay input",
    /* 108 */ "Dataset Section missing in overlay",
    /* 109 */ "Problem calculating corner cells",
    /* 110 */ "Need at least one raster dataset",
    /* 111 */ "Transform limits are invalid",
    /* 112 */ "Histogram has no matching Transform id",
    /* 113 */ "Piecewise linear transform required for this operation",
    /* 114 */ "Input Limits of second transform must match output limits of first",
    /* 115 */ "Output Limits of second transform must match output limits of first",
    /* 116 */ "Histogram is out of date.  Redisplay to update",
    /* 117 */ "Null dataset header pointer passed to function",
    /* 118 */ "A raster dataset is required for this function",
    /* 119 */ "You cannot edit the formula of a switched off Overlay",
    /* 120 */ "Invalid button type for this function",
    /* 121 */ "Null parent passed to function",
    /* 122 */ "Invalid band number",
    /* 123 */ "Null Stream passed to function",
    /* 124 */
    "Unable to switch stream on because of a \ndataset problem. Reload dataset and try again",
    /* 125 */ "Directory not found",
    /* 126 */ "Algorithm directory null",
    /* 127 */ "No Sub-directories Present",
    /* 128 */ "This is a Fake error and should never be seen",
    /* 129 */ "",
    /* 130 */ "Formula Args are null",
    /* 131 */ "Input %d has null band number",
    /* 132 */ "Band not found for input %d",
    /* 133 */ "Null Resource name passed to function",
    /* 134 */ "Resource with name %s not found",
    /* 135 */ "Attempted to deregister a notify function that was not registered",
    /* 136 */ "Dataset is not of vector type",
    /* 137 */ "No points in vector object",
    /* 138 */ "Invalid vector object",
    /* 139 */ "Invalid addition to vector object list",
    /* 140 */ "Warning: Parsing error(s) in processing vector file",
    /* 141 */ "Invalid transform: %s",
    /* 142 */ "Cannot setup $VLNTMP",
    /* 143 */ "\"%s\" is not a Virtual Dataset",
    /* 144 */ "%s",
    /* 145 */ "",
    /* 146 */ "Less than one band in raster dataset \"%s\"",
    /* 147 */ "\"%s\" is a directory, was expecting a file or device specification",
    /* 148 */ "Pipe read handling not yet implemented (attempt to open pipe \"%s\")",
    /* 149 */ "Function %s failed on device: \"%s\"",
    /* 150 */ "Not enough data returned from function %s on device: \"%s\"",
    /* 151 */ "Function \"%s\" not supported on device: \"%s\"",
    /* 152 */ "Cannot rewind non-tape device: \"%s\"",
    /* 153 */ "Null library specification",
    /* 154 */ "Cannot load library: \"%s\"",
    /* 155 */ "Cannot free library: \"%s\"",
    /* 156 */ "Cannot find function \"%s\" in library \"%s\"",
    /* 157 */ "Saikro TAPEDEV subsystem error:\n%s",
    /* 158 */
    "Cannot find file or device: \"%s\".\n\nIf you were trying to open a tape device the problem "
    "may be:\n1) You did not specify the correct device name.\n2) You have not set up the tape "
    "device correctly.\n\nSee the documentation for information on which tape devices are "
    "supported and information on how to install and configure them.\n\n",
    /* 159 */ "Cannot skip file(s) on non-tape device: \"%s\"",
    /* 160 */ "Error in argument processing for command: \"%s\"",
    /* 161 */ "Error in executing pipe command: \"%s\"",
    /* 162 */ "Attempt to access past end (or beginning) of media.\n%s",
    /* 163 */ "Unable to draw the Map Composition Object\nSwitching to fast preview mode.\n%s",
    /* 164 */ "Error copying \"%s\" to \"%s\"",
    /* 165 */ "Win32 error %d from dialogue box (%s)",
    /* 166 */ "Vector object is clipped\n",
    /* 167 */ "3D Stereo mode only works on local displays\n",
    /* 168 */ "Error in library (%s) loading symbol (%s)",
    /* 169 */ "VLD Raster error: Filetype unknown",
    /* 170 */ "VLD Raster error: Could not load translator (%s)",
    /* 171 */ "VLD Raster error: %s",
    /* 172 */ "Error in library (%s) loading symbol (%s)",
    /* 173 */ "VLD Point Extractor error: Filetype unknown",
    /* 174 */ "VLD Point Extractor error: Could not load extractor (%s)",
    /* 175 */ "VLD Point Extractor error: \"%s\"",
    /* 176 */
    "Ground control points are required to complete this task.\nThe file you are using contains "
    "insufficient or no GCP's.\nPlease correct this using the Geocoding wizard.\n",
    /* 177 */
    "Fiducial Information is required to complete this task.\nThe file you are using does not "
    "contain Fiducial Information.\nPlease correct this using the Geocoding wizard.\n",
    /* 178 */
    "Fiducial points are required to complete this task.\nThe file you are using contains "
    "insufficient or no Fiducial Points.\nPlease correct this using the define Fiducial Points "
    "option.\n",
    /* 179 */
    "Sensor Information is required to complete this task.\nThe file you are using does not "
    "contain Sensor Information.\nPlease correct this using the Geocoding wizard.\n",
    /* 180 */ "Unable to solve this equation with the given data\n",
    /* 181 */
    "No Map to Map informations was found.\nPlease correct this using the Geocoding Wizard\n",
    /* 182 */ "The current cell size is zero.\nPlease set cell size to a value greater than zero\n",
    /* 183 */ "The requested band %d\n was not found in file %s\n",
    /* 184 */ "Unable to approximate a coordinate location\n",
    /* 185 */ "The requested dataset cell location is not within %s\n",
    /* 186 */ "This operation requires a DEM file or average height value\n",
    /* 187 */ "A coordinate space is required and none was specified\n",
    /* 188 */ "Ortho information is required and none was provided\n",
    /* 189 */ "A coordinate is required and none was specified\n",
    /* 190 */ "The DEM value retrieved is NULL\n",
    /* 191 */ "This operation require Warp control information and none was specified\n",
    /* 192 */ "The rectitication type selected is not suitable for this operation\n",
    /* 193 */
    "Unable to solve exterior orientation in the allowed iterations.\n You may need toadd addition "
    "or adjust existing control points\n",
    /* 194 */ "Cannot set environment variable %s",
    /* 195 */ "Cannot get current working directory",
    /* 196 */ "%s",
};

namespace {

char error_buffer[VLD_ERRBUF_SIZE];
char empty_text[] = "";

const char *row_format(int code)
{
    return (code >= 0 && code < VLD_ERRMSG_ROWS) ? VLD_errmsg[code] : "";
}

// Formats into the static buffer and points the record at it; csect is held.
int setup_locked(int code, const char *format, va_list args)
{
    vsnprintf(error_buffer, sizeof error_buffer, format, args);
    VLD_error.code = code;
    VLD_error.text = error_buffer;
    return code;
}

// Appends a newline and a text to the error text, never growing it past 511
// characters; an error text that is that long already stays as it is.
void append_to_error_text(const char *text)
{
    vln_mutex_begin(&csect);
    if (VLD_error.text == nullptr) {
        error_buffer[0] = '\0';
        VLD_error.text = error_buffer;
    }
    safe_strcat(VLD_error.text, "\n", 512);
    safe_strcat(VLD_error.text, text, 512);
    vln_mutex_end(&csect);
}

// Formats a caller's message into a new string stored through `out`.
void construct_from_args(char **out, const char *format, va_list args, bool with_system_error)
{
    int saved_errno = errno;
    char buffer[2048];
    buffer[0] = '\0';
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    if (format != nullptr) vsnprintf(buffer, sizeof buffer, format, args);
#pragma GCC diagnostic pop
    if (with_system_error) {
        errno = saved_errno;
        append_system_error(buffer, sizeof buffer);
    }
    if (out != nullptr) *out = strsave(buffer);
}

// Sets up the error of a table row, with the last system error after it when
// `with_system_error` is set.
void setup_row(int code, va_list args, bool with_system_error)
{
    int saved_errno = errno;
    vln_mutex_begin(&csect);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    setup_locked(code, row_format(code), args);
#pragma GCC diagnostic pop
    if (with_system_error) {
        errno = saved_errno;
        append_system_error(error_buffer, VLD_ERRBUF_SIZE);
    }
    vln_mutex_end(&csect);
}

}  // namespace

char vld_last_diagnostic[VLD_DIAGNOSTIC_SIZE];

int VLD_setup_error(int code, ...)
{
    va_list args;
    va_start(args, code);
    setup_row(code, args, false);
    va_end(args);
    return code;
}

int vld_setup_error_text(int code, const char *text)
{
    vln_mutex_begin(&csect);
    snprintf(error_buffer, sizeof error_buffer, "%s", text != nullptr ? text : "");
    VLD_error.code = code;
    VLD_error.text = error_buffer;
    vln_mutex_end(&csect);
    return code;
}

int VLD_setup_system_error(int code, ...)
{
    va_list args;
    va_start(args, code);
    setup_row(code, args, true);
    va_end(args);
    return code;
}

int VLD_setup_vds_error(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vln_mutex_begin(&csect);
    setup_locked(49, format != nullptr ? format : "", args);
    vln_mutex_end(&csect);
    va_end(args);
    return 49;
}

char *VLD_error_text(void)
{
    return VLD_error.text != nullptr ? VLD_error.text : empty_text;
}

void VLD_output_error(void)
{
    vln_mutex_begin(&csect);
    FILE *err = vln_ReturnStdErr();
    fprintf(err, "VLD Error:\n");
    fprintf(err, "    %d\n", VLD_error.code);
    fprintf(err, "    %s\n", VLD_error_text());
    fflush(err);
    vln_mutex_end(&csect);
}

int VLD_error_vprintf(const char *format, va_list args)
{
    if (format == nullptr) return 0;
    return vfprintf(vln_ReturnStdErr(), format, args);
}

int construct_errmsg(char **out, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    construct_from_args(out, format, args, false);
    va_end(args);
    return 0;
}

int construct_system_errmsg(char **out, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    construct_from_args(out, format, args, true);
    va_end(args);
    return 0;
}

/* Appends a line naming the last system error (errno and its text) to a
 * buffer of `size` bytes, keeping the terminator inside the buffer. */
void append_system_error(char *buffer, int size)
{
    int saved_errno = errno;
    if (buffer == nullptr || size <= 0) return;
    vln_mutex_begin(&csect);
    size_t length = strlen(buffer);
    // A buffer already full gets nothing appended. (The lock is released on
    // this path too: holding it would stall every other thread for good.)
    if (length >= static_cast<size_t>(size - 1)) {
        vln_mutex_end(&csect);
        return;
    }
    if (length > 0 && buffer[length - 1] != '\n') {
        buffer[length++] = '\n';
        buffer[length] = '\0';
    }
    char built[256];
    snprintf(built, sizeof built, "Last system error = %d, %s", saved_errno, strerror(saved_errno));
    long room = static_cast<long>(size) - static_cast<long>(length + strlen(built) + 1);
    if (room > 0) strncat(buffer, built, static_cast<size_t>(room));
    buffer[size - 1] = '\0';
    vln_mutex_end(&csect);
    errno = saved_errno;
}

void append_parser_error_to_VLD_error(void)
{
    append_to_error_text(vld_last_diagnostic);
}

void append_buffer_to_VLD_error(const char *text)
{
    append_to_error_text(text);
}

void Fatal(const char *text)
{
    FILE *err = vln_ReturnStdErr();
    fprintf(err, "FATAL: %s\n", text != nullptr ? text : "");
    fflush(err);
    vln_thread_exit(1);
}

/* The platform's report of a failure. There are no message boxes here: a shown
 * report goes to the library's standard error stream under the box's title,
 * followed by the system's text for the last error. */
void win32_error(int show, const char *text)
{
    int saved_errno = errno;
    if (text == nullptr || strlen(text) < 5) return;
    if (!show) {
        VLN_debug_log_printf("%s", text);
        return;
    }
    FILE *err = vln_ReturnStdErr();
    fprintf(err, "Vorlan (win32) error\n%s\n%s\n", text, strerror(saved_errno));
    fflush(err);
}

char *win32_error_txt(int code)
{
    char buffer[256];
    const char *text = strerror_r(code, buffer, sizeof buffer);
    if (text == nullptr || strncmp(text, "Unknown error", 13) == 0) return nullptr;
    return strsave(text);
}

const char *VLD_version(void)
{
    return VORLAN_VERSION;
}
