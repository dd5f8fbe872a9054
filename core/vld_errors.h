/*
 * vld_errors.h: the rows of the message table, by name.
 *
 * A function that can fail returns 0 or a row of VLD_errmsg and leaves the
 * formatted text in VLD_error.text. The rows and their texts are fixed by the
 * interface: callers compare against the numbers, and so a row keeps its number
 * and its text for good. This one list makes both the enum of names below and
 * the table in vld_error.cpp, so that code says VLD_ERR_CANNOT_OPEN_FILE where
 * it means row 1.
 *
 * Each entry is X(name, number, format), named after what the row says. The
 * two empty rows in the middle of the table were never given a text and are
 * only held in place. A "%s" row carries a text its caller wrote whole, and is
 * named after its callers: VLD_ERR_MESSAGE for any failure described in full,
 * VLD_ERR_VDS for those of virtual datasets (VLD_setup_vds_error),
 * VLD_ERR_LINK_INIT for the initialisation programs of dynamic links; the two
 * that no caller uses yet are VLD_ERR_PLAIN_TEXT and VLD_ERR_OTHER.
 */
#ifndef VORLAN_VLD_ERRORS_H
#define VORLAN_VLD_ERRORS_H

/* clang-format off */
#define VLD_ERROR_ROWS(X) \
    X(NONE, 0, "") \
    X(CANNOT_OPEN_FILE, 1, "Cannot open file \"%s\"") \
    X(CANNOT_CLOSE_FILE, 2, "Cannot close file \"%s\"") \
    X(CANNOT_CREATE_FILE, 3, "Cannot create file \"%s\"") \
    X(CANNOT_READ_FILE, 4, "Cannot read from file \"%s\"") \
    X(CANNOT_WRITE_FILE, 5, "Cannot write to file \"%s\"") \
    X(CANNOT_SEEK_FILE, 6, "Cannot seek to position in file \"%s\"") \
    X(BAD_FORMAT, 7, "VLD file \"%s\" has bad format") \
    X(INVALID_FILE_TYPE, 8, "Invalid file type: \"%s\"") \
    X(NULL_FILE_SPEC, 9, "Null file or device specification") \
    X(REQUEST_NOT_ASCENDING, 10, "Raster request list not in ascending order") \
    X(CANNOT_ALLOCATE, 11, "Could not allocate %d bytes of memory") \
    X(INTERNAL, 12, "Internal error: \"%s\"") \
    X(READING, 13, "Error while reading: \"%s\"") \
    X(UNEXPECTED_EOF, 14, "Unexpected End-Of-File while reading: \"%s\"") \
    X(UNKNOWN_VECTOR_TYPE, 15, "Unknown vector object type: \"%s\"") \
    X(INCOMPATIBLE_COORDSYS, 16, "Incompatible coordinate systems") \
    X(UNKNOWN_COORDSYS_TYPE, 17, "Unknown coordinate system type") \
    X(REGION_TOO_FEW_POINTS, 18, "Insufficient points for definition of region \"%s\"") \
    X(DEFAULT_STREAM, 19, "Problem creating default stream") \
    X(INVALID_TRANSFORM_TYPE, 20, "Invalid transform type") \
    X(NOT_IMPLEMENTED, 21, "This function is not yet implemented") \
    X(INVALID_STREAM_TYPE, 22, "Invalid stream type") \
    X(BAD_BYTE_ORDER, 23, "Bad byte order in dshdr") \
    X(MESSAGE, 24, "%s") \
    X(ALG_COORD_MISSING, 25, "Coordinate missing in algorithm: %s") \
    X(CANNOT_RENAME_FILE, 26, "Cannot rename file: \"%s\"") \
    X(DIR_NOT_WRITABLE, 27, "Directory \"%s\" is not writable") \
    X(ENV_NOT_SET, 28, "Environment variable \"%s\" not set") \
    X(FILE_NOT_FOUND_IN, 29, "File \"%s\" not found in %s") \
    X(INVALID_COORDSPACE, 30, "Invalid coordinate space: %s") \
    X(GEODETIC_TRANSFORM, 31, "Geodetic transform error: \"%s\"") \
    X(REGION_NOT_FOUND, 32, "Cannot find region: \"%s\"") \
    X(CANNOT_FIND_DIR, 33, "Cannot find directory: \"%s\"") \
    X(LINES_OUTSIDE_DATASET, 34, "Lines specified are outside dataset range") \
    X(CELLS_OUTSIDE_DATASET, 35, "Cells specified are outside dataset range") \
    X(REGION_EXISTS, 36, "Region \"%s\" already exists") \
    X(LL_VECTOR_UNSUPPORTED, 37, "Latitude/Longitude vector datasets not yet supported") \
    X(BAD_KERNEL_SIZE, 38, "Bad size for kernel \"%s\"\n(rows and columns must be odd)") \
    X(LEGEND_NO_NAME, 39, \
      "No \"Name\" entry found for legend element with attribute string:\n" \
      "'%s'") \
    X(LEGEND_ELEMENT_NOT_FOUND, 40, \
      "Could not find legend element file '%s.ldd' in $VORLAN/legendrules") \
    X(LEGEND_RULES_DIR, 41, "Could not open Legend Rules definition directory for reading:\n'%s'") \
    X(LEGEND_NO_PARAMETER, 42, \
      "There is no legend item parameter with name '%s': invalid override") \
    X(VDS_TOO_DEEP, 43, "Too many levels of virtual datasets (>%d)\nProbably a recursion problem") \
    X(VDS_EMPTY, 44, "Virtual dataset %s is empty (all bands turned off)") \
    X(CANNOT_MMAP, 45, "Cannot mmap dataset\n%s") \
    X(CANNOT_MUNMAP, 46, "Cannot unmap dataset\n%s") \
    X(RASTER_DATASET_REQUIRED, 47, "Raster Dataset required") \
    X(CANNOT_USE_VDS, 48, "Cannot use virtual dataset (%s)") \
    X(VDS, 49, "%s") \
    X(STATFS_NULL_SPEC, 50, "NULL file specification passed to statfs()") \
    X(STATFS_FAILED, 51, "statfs() failed on %s") \
    X(CANNOT_STAT_FILE, 52, "Cannot get status of file \"%s\"") \
    X(DATA_FILE_TOO_SHORT, 53, "Dataset data file size (%d) less than expected (%d)") \
    X(MMAP_HEADER_UNALIGNED, 54, \
      "Cannot mmap dataset \"%s\" for reading/writing, header not aligned " \
      "(%d bytes)") \
    X(RESOURCE_FILE, 55, "Cannot find or open the resource file '%s'") \
    X(RESOURCE_BTREE, 56, "Btree problems with a Galaxy resource file") \
    X(TOO_MANY_RESOURCE_FILES, 57, "Too many Galaxy resource files open") \
    X(NOT_BTREE_FILE, 58, "File is not a Galaxy Btree file") \
    X(LINK_INIT, 59, "%s") \
    X(LINK_INIT_STATUS, 60, "Dynamic link init program %s returned error %d\n%s") \
    X(LINK_INIT_TOO_FEW, 61, \
      "Link init program returned too few (%d) parameters.\nParameters " \
      "were: \"%s\".") \
    X(VORLAN_NOT_SET, 62, "VORLAN environment variable not set") \
    X(LOADING_ALG, 63, "Error loading algorithm") \
    X(NO_WINDOW, 64, "First open a window") \
    X(NO_ALG, 65, "Currently no algorithm") \
    X(ALG_FILE_NAME_NULL, 66, "Algorithm file name null - use 'Save Algorithm As...'") \
    X(SAVING_ALG, 67, "Error saving algorithm") \
    X(NOTHING_TO_DELETE, 68, "Nothing to delete") \
    X(NOTHING_TO_APPEND_AFTER, 69, "Nothing to append after") \
    X(NOTHING_TO_INSERT_BEFORE, 70, "Nothing to insert before") \
    X(DEFAULT_TRANSFORM, 71, "Problem with default transform") \
    X(ALG_CORRUPT, 72, "Algorithm internally corrupt") \
    X(PARSING_COLOUR, 73, "Problem parsing color") \
    X(ALLOCATING_COLOUR, 74, "Problem allocating color") \
    X(NULL_KERNEL, 75, "Problem with null kernel") \
    X(LOADING_KERNEL, 76, "Error loading kernel") \
    X(CREATING_KERNEL, 77, "Error creating kernel") \
    X(LOADING_FORMULA, 78, "Error loading formula") \
    X(CREATING_FORMULA, 79, "Error creating formula") \
    X(LOADING_DATASET, 80, "Error loading dataset") \
    X(VLNDSDIR_NOT_SET, 81, "Please set $VLNDSDIR") \
    X(DATASET_DIR_NULL, 82, "Dataset directory null") \
    X(OPENING_DATASET_DIR, 83, "Problem opening Dataset Directory") \
    X(DATASET_FILE_NOT_FOUND, 84, "Dataset file not found") \
    X(DATASET_DIR_NOT_FOUND, 85, "Dataset directory not found") \
    X(NO_HISTOGRAM, 86, "No histogram available") \
    X(FORMULA_SYNTAX, 87, "Syntax error in generic formula:  %s") \
    X(FORMULA_PARAM_TOO_LARGE, 88, "Generic formula parameter too large") \
    X(FORMULA_ZERO_PARAM, 89, "Generic formula invalid zero parameter") \
    X(FORMULA_BAD_INPUT_NUMBER, 90, "Generic formula invalid overlay input number") \
    X(NULL_FORMULA, 91, "Null formula pointer passed to function") \
    X(INVALID_DESTINATION_TYPE, 92, "Invalid destination type for this operation") \
    X(NO_DISPLAYS, 93, "No displays specified, using default display") \
    X(OPENING_DISPLAY, 94, "Problem Opening Display") \
    X(NO_SUITABLE_VISUAL, 95, "No suitable visual on display") \
    X(DISPLAY_NOT_FOUND, 96, "Could not find display selected") \
    X(INVALID_SHELL_TYPE, 97, "Invalid shell type passed to function") \
    X(LOADING_LUT, 98, "Error loading Lookup Table") \
    X(DESTINATION_NOT_FOUND, 99, "Desination chosen not found") \
    X(NULL_DESTINATION, 100, "Null destination passed to function") \
    X(DATASET_INFO, 101, "Problem obtaining dataset information") \
    X(NOT_RASTER_DATASET, 102, "Dataset is not of raster type") \
    X(NO_DATASET, 103, "Currently no dataset") \
    X(NO_DATASET_DIR, 104, "Currently no dataset directory") \
    X(PLACEMENT_OUTSIDE_DATASET, 105, "Placement details outside range of dataset") \
    X(STREAMINPUT_NOT_FOUND, 106, "Streaminput number in formula not found in overlay") \
    X(BANDID_MISSING, 107, "Bandid info missing in overlay input") \
    X(DATASET_SECTION_MISSING, 108, "Dataset Section missing in overlay") \
    X(CORNER_CELLS, 109, "Problem calculating corner cells") \
    X(NEED_RASTER_DATASET, 110, "Need at least one raster dataset") \
    X(INVALID_TRANSFORM_LIMITS, 111, "Transform limits are invalid") \
    X(HISTOGRAM_NO_TRANSFORM, 112, "Histogram has no matching Transform id") \
    X(PIECEWISE_REQUIRED, 113, "Piecewise linear transform required for this operation") \
    X(TRANSFORM_INPUT_LIMITS, 114, \
      "Input Limits of second transform must match output limits of " \
      "first") \
    X(TRANSFORM_OUTPUT_LIMITS, 115, \
      "Output Limits of second transform must match output limits of " \
      "first") \
    X(HISTOGRAM_OUT_OF_DATE, 116, "Histogram is out of date.  Redisplay to update") \
    X(NULL_DSHDR, 117, "Null dataset header pointer passed to function") \
    X(RASTER_REQUIRED_HERE, 118, "A raster dataset is required for this function") \
    X(OVERLAY_SWITCHED_OFF, 119, "You cannot edit the formula of a switched off Overlay") \
    X(INVALID_BUTTON_TYPE, 120, "Invalid button type for this function") \
    X(NULL_PARENT, 121, "Null parent passed to function") \
    X(INVALID_BAND, 122, "Invalid band number") \
    X(NULL_STREAM, 123, "Null Stream passed to function") \
    X(STREAM_SWITCH_ON, 124, \
      "Unable to switch stream on because of a \ndataset problem. Reload " \
      "dataset and try again") \
    X(DIR_NOT_FOUND, 125, "Directory not found") \
    X(ALG_DIR_NULL, 126, "Algorithm directory null") \
    X(NO_SUBDIRS, 127, "No Sub-directories Present") \
    X(FAKE, 128, "This is a Fake error and should never be seen") \
    X(RESERVED_129, 129, "") \
    X(FORMULA_ARGS_NULL, 130, "Formula Args are null") \
    X(INPUT_NULL_BAND, 131, "Input %d has null band number") \
    X(INPUT_BAND_NOT_FOUND, 132, "Band not found for input %d") \
    X(NULL_RESOURCE_NAME, 133, "Null Resource name passed to function") \
    X(RESOURCE_NOT_FOUND, 134, "Resource with name %s not found") \
    X(NOTIFY_NOT_REGISTERED, 135, \
      "Attempted to deregister a notify function that was not registered") \
    X(NOT_VECTOR_DATASET, 136, "Dataset is not of vector type") \
    X(NO_VECTOR_POINTS, 137, "No points in vector object") \
    X(INVALID_VECTOR_OBJECT, 138, "Invalid vector object") \
    X(INVALID_VECTOR_ADDITION, 139, "Invalid addition to vector object list") \
    X(VECTOR_PARSE_WARNING, 140, "Warning: Parsing error(s) in processing vector file") \
    X(INVALID_TRANSFORM, 141, "Invalid transform: %s") \
    X(CANNOT_SETUP_VLNTMP, 142, "Cannot setup $VLNTMP") \
    X(NOT_VDS, 143, "\"%s\" is not a Virtual Dataset") \
    X(PLAIN_TEXT, 144, "%s") \
    X(RESERVED_145, 145, "") \
    X(NO_BANDS, 146, "Less than one band in raster dataset \"%s\"") \
    X(IS_DIRECTORY, 147, "\"%s\" is a directory, was expecting a file or device specification") \
    X(PIPE_READ_UNSUPPORTED, 148, \
      "Pipe read handling not yet implemented (attempt to open pipe " \
      "\"%s\")") \
    X(DEVICE_FUNCTION_FAILED, 149, "Function %s failed on device: \"%s\"") \
    X(DEVICE_SHORT_DATA, 150, "Not enough data returned from function %s on device: \"%s\"") \
    X(DEVICE_FUNCTION_UNSUPPORTED, 151, "Function \"%s\" not supported on device: \"%s\"") \
    X(REWIND_NON_TAPE, 152, "Cannot rewind non-tape device: \"%s\"") \
    X(NULL_LIBRARY_SPEC, 153, "Null library specification") \
    X(CANNOT_LOAD_LIBRARY, 154, "Cannot load library: \"%s\"") \
    X(CANNOT_FREE_LIBRARY, 155, "Cannot free library: \"%s\"") \
    X(FUNCTION_NOT_IN_LIBRARY, 156, "Cannot find function \"%s\" in library \"%s\"") \
    X(TAPEDEV, 157, "Saikro TAPEDEV subsystem error:\n%s") \
    X(FILE_OR_DEVICE_NOT_FOUND, 158, \
      "Cannot find file or device: \"%s\".\n\nIf you were trying to " \
      "open a tape device the problem may be:\n1) You did not specify " \
      "the correct device name.\n2) You have not set up the tape device " \
      "correctly.\n\nSee the documentation for information on which " \
      "tape devices are supported and information on how to install " \
      "and configure them.\n\n") \
    X(SKIP_NON_TAPE, 159, "Cannot skip file(s) on non-tape device: \"%s\"") \
    X(COMMAND_ARGUMENTS, 160, "Error in argument processing for command: \"%s\"") \
    X(PIPE_COMMAND, 161, "Error in executing pipe command: \"%s\"") \
    X(PAST_END_OF_MEDIA, 162, "Attempt to access past end (or beginning) of media.\n%s") \
    X(MAP_OBJECT_DRAW, 163, \
      "Unable to draw the Map Composition Object\nSwitching to fast " \
      "preview mode.\n%s") \
    X(CANNOT_COPY_FILE, 164, "Error copying \"%s\" to \"%s\"") \
    X(DIALOGUE_BOX, 165, "Win32 error %d from dialogue box (%s)") \
    X(VECTOR_CLIPPED, 166, "Vector object is clipped\n") \
    X(STEREO_LOCAL_ONLY, 167, "3D Stereo mode only works on local displays\n") \
    X(TRANSLATOR_SYMBOL, 168, "Error in library (%s) loading symbol (%s)") \
    X(RASTER_FILETYPE_UNKNOWN, 169, "VLD Raster error: Filetype unknown") \
    X(TRANSLATOR_LOAD, 170, "VLD Raster error: Could not load translator (%s)") \
    X(RASTER_TRANSLATOR, 171, "VLD Raster error: %s") \
    X(EXTRACTOR_SYMBOL, 172, "Error in library (%s) loading symbol (%s)") \
    X(EXTRACTOR_FILETYPE_UNKNOWN, 173, "VLD Point Extractor error: Filetype unknown") \
    X(EXTRACTOR_LOAD, 174, "VLD Point Extractor error: Could not load extractor (%s)") \
    X(POINT_EXTRACTOR, 175, "VLD Point Extractor error: \"%s\"") \
    X(GCPS_REQUIRED, 176, \
      "Ground control points are required to complete this task.\nThe " \
      "file you are using contains insufficient or no GCP's.\nPlease " \
      "correct this using the Geocoding wizard.\n") \
    X(FIDUCIAL_INFO_REQUIRED, 177, \
      "Fiducial Information is required to complete this task.\nThe " \
      "file you are using does not contain Fiducial Information.\nPlease " \
      "correct this using the Geocoding wizard.\n") \
    X(FIDUCIAL_POINTS_REQUIRED, 178, \
      "Fiducial points are required to complete this task.\nThe file " \
      "you are using contains insufficient or no Fiducial Points.\nPlease " \
      "correct this using the define Fiducial Points option.\n") \
    X(SENSOR_INFO_REQUIRED, 179, \
      "Sensor Information is required to complete this task.\nThe file " \
      "you are using does not contain Sensor Information.\nPlease correct " \
      "this using the Geocoding wizard.\n") \
    X(CANNOT_SOLVE, 180, "Unable to solve this equation with the given data\n") \
    X(NO_MAP_TO_MAP, 181, \
      "No Map to Map informations was found.\nPlease correct this using " \
      "the Geocoding Wizard\n") \
    X(ZERO_CELL_SIZE, 182, \
      "The current cell size is zero.\nPlease set cell size to a value " \
      "greater than zero\n") \
    X(BAND_NOT_IN_FILE, 183, "The requested band %d\n was not found in file %s\n") \
    X(CANNOT_APPROXIMATE, 184, "Unable to approximate a coordinate location\n") \
    X(CELL_NOT_WITHIN, 185, "The requested dataset cell location is not within %s\n") \
    X(DEM_REQUIRED, 186, "This operation requires a DEM file or average height value\n") \
    X(COORDSPACE_REQUIRED, 187, "A coordinate space is required and none was specified\n") \
    X(ORTHO_REQUIRED, 188, "Ortho information is required and none was provided\n") \
    X(COORDINATE_REQUIRED, 189, "A coordinate is required and none was specified\n") \
    X(DEM_VALUE_NULL, 190, "The DEM value retrieved is NULL\n") \
    X(WARP_CONTROL_REQUIRED, 191, \
      "This operation require Warp control information and none was " \
      "specified\n") \
    X(UNSUITABLE_RECTIFICATION, 192, \
      "The rectitication type selected is not suitable for this operation\n") \
    X(EXTERIOR_ORIENTATION, 193, \
      "Unable to solve exterior orientation in the allowed iterations.\n" \
      " You may need toadd addition or adjust existing control points\n") \
    X(CANNOT_SET_ENV, 194, "Cannot set environment variable %s") \
    X(CANNOT_GET_CWD, 195, "Cannot get current working directory") \
    X(OTHER, 196, "%s")
/* clang-format on */

#define VLD_ERR_ENUM_ENTRY_(name, number, format) VLD_ERR_##name = number,
enum VLD_error_row { VLD_ERROR_ROWS(VLD_ERR_ENUM_ENTRY_) };
#undef VLD_ERR_ENUM_ENTRY_

#endif
