/*
 * vld_digitizer.cpp: the digitiser documents. DigTypeInfo describes the
 * strings a kind of tablet sends, DigConfigInfo the serial line it hangs on,
 * and DigSessionInfo one session: which type and configuration files were
 * used, and the warp that ties the tablet to map coordinates.
 */
#include <cstddef>

#include "vld_docs.h"
#include "vld_record_internal.h"

namespace {

using vld::Kind;

/* ---------------------------------------------------------------- DigConfigInfo */

enum : uint32_t {
    DC_NAME = 1,
    DC_COMMENTS,
    DC_PORT,
    DC_BAUDRATE,
    DC_PARITY,
    DC_STOPBITS,
    DC_DATABITS
};

const VLD_ENUM ev_parity[] = {
    {DIG_PARITY_None, "None"}, {DIG_PARITY_Odd, "Odd"}, {DIG_PARITY_Even, "Even"}, {0, nullptr}};

const VLD_KEYWORD config_keywords[] = {
    {DC_NAME, "Name", VTYPE_STRING, nullptr},      {DC_COMMENTS, "Comments", VTYPE_STRING, nullptr},
    {DC_PORT, "Port", VTYPE_STRING, nullptr},      {DC_BAUDRATE, "BaudRate", VTYPE_INT, nullptr},
    {DC_PARITY, "Parity", VTYPE_ENUM, ev_parity},  {DC_STOPBITS, "StopBits", VTYPE_INT, nullptr},
    {DC_DATABITS, "DataBits", VTYPE_INT, nullptr}, {0, nullptr, 0, nullptr}};

const vld::Field config_fields[] = {
    {.code = DC_NAME, .kind = Kind::String, .offset = offsetof(digconfiginfo, name)},
    {.code = DC_COMMENTS, .kind = Kind::String, .offset = offsetof(digconfiginfo, comments)},
    {.code = DC_PORT, .kind = Kind::String, .offset = offsetof(digconfiginfo, port)},
    {.code = DC_BAUDRATE, .kind = Kind::Int32, .offset = offsetof(digconfiginfo, baud_rate)},
    {.code = DC_PARITY, .kind = Kind::Enum, .offset = offsetof(digconfiginfo, parity)},
    {.code = DC_STOPBITS, .kind = Kind::Int32, .offset = offsetof(digconfiginfo, stop_bits)},
    {.code = DC_DATABITS, .kind = Kind::Int32, .offset = offsetof(digconfiginfo, data_bits)},
};

const vld::Record config_record = {
    .block = "DigConfigInfo",
    .keywords = config_keywords,
    .fields = config_fields,
    .nfields = vld::count_of(config_fields),
    .size = sizeof(digconfiginfo),
};

/* ---------------------------------------------------------------- DigSessionInfo */

enum : uint32_t { DS_NAME = 1, DS_COMMENTS, DS_TYPEFILE, DS_CONFIGFILE, DS_WARPCONTROL };

const VLD_KEYWORD session_keywords[] = {{DS_NAME, "Name", VTYPE_STRING, nullptr},
                                        {DS_COMMENTS, "Comments", VTYPE_STRING, nullptr},
                                        {DS_TYPEFILE, "TypeFile", VTYPE_FILENAME, nullptr},
                                        {DS_CONFIGFILE, "ConfigFile", VTYPE_FILENAME, nullptr},
                                        {DS_WARPCONTROL, "WarpControl", VTYPE_BLOCK, nullptr},
                                        {0, nullptr, 0, nullptr}};

const vld::Field session_fields[] = {
    {.code = DS_NAME, .kind = Kind::String, .offset = offsetof(digsessioninfo, name)},
    {.code = DS_COMMENTS, .kind = Kind::String, .offset = offsetof(digsessioninfo, comments)},
    {.code = DS_TYPEFILE, .kind = Kind::Filename, .offset = offsetof(digsessioninfo, type_file)},
    {.code = DS_CONFIGFILE,
     .kind = Kind::Filename,
     .offset = offsetof(digsessioninfo, config_file)},
    {.code = DS_WARPCONTROL,
     .kind = Kind::BlockPtr,
     .offset = offsetof(digsessioninfo, warp_control),
     .sub = vld::vld_warp_control_record},
};

const vld::Record session_record = {
    .block = "DigSessionInfo",
    .keywords = session_keywords,
    .fields = session_fields,
    .nfields = vld::count_of(session_fields),
    .size = sizeof(digsessioninfo),
};

/* ---------------------------------------------------------------- DigTypeInfo */

enum : uint32_t {
    DT_COMMENTS = 1,
    DT_DIGSTRINGLENGTH,
    DT_LASTCHARACTER,
    DT_XPOSITION,
    DT_YPOSITION,
    DT_FLAGPOSITION,
    DT_STATUSPOSITION,
    DT_BUTTONDOWN,
    DT_BUTTONUP
};

const VLD_KEYWORD type_keywords[] = {{DT_COMMENTS, "Comments", VTYPE_STRING, nullptr},
                                     {DT_DIGSTRINGLENGTH, "DigStringLength", VTYPE_INT, nullptr},
                                     {DT_LASTCHARACTER, "LastCharacter", VTYPE_STRING, nullptr},
                                     {DT_XPOSITION, "XPosition", VTYPE_STRING, nullptr},
                                     {DT_YPOSITION, "YPosition", VTYPE_STRING, nullptr},
                                     {DT_FLAGPOSITION, "FlagPosition", VTYPE_STRING, nullptr},
                                     {DT_STATUSPOSITION, "StatusPosition", VTYPE_STRING, nullptr},
                                     {DT_BUTTONDOWN, "ButtonDown", VTYPE_STRING, nullptr},
                                     {DT_BUTTONUP, "ButtonUp", VTYPE_STRING, nullptr},
                                     {0, nullptr, 0, nullptr}};

#define DT(m) offsetof(digtypeinfo, m)
const vld::Field type_fields[] = {
    {.code = DT_COMMENTS, .kind = Kind::String, .offset = DT(comments)},
    {.code = DT_DIGSTRINGLENGTH, .kind = Kind::Int32, .offset = DT(dig_string_length)},
    {.code = DT_LASTCHARACTER, .kind = Kind::String, .offset = DT(last_character)},
    {.code = DT_XPOSITION, .kind = Kind::String, .offset = DT(x_position)},
    {.code = DT_YPOSITION, .kind = Kind::String, .offset = DT(y_position)},
    {.code = DT_FLAGPOSITION, .kind = Kind::String, .offset = DT(flag_position)},
    {.code = DT_STATUSPOSITION, .kind = Kind::String, .offset = DT(status_position)},
    {.code = DT_BUTTONDOWN, .kind = Kind::String, .offset = DT(button_down)},
    {.code = DT_BUTTONUP, .kind = Kind::String, .offset = DT(button_up)},
};
#undef DT

const vld::Record type_record = {
    .block = "DigTypeInfo",
    .keywords = type_keywords,
    .fields = type_fields,
    .nfields = vld::count_of(type_fields),
    .size = sizeof(digtypeinfo),
};

}  // namespace

const vld::Record &vld::vld_digconfiginfo_record()
{
    return config_record;
}
const vld::Record &vld::vld_digsessioninfo_record()
{
    return session_record;
}
const vld::Record &vld::vld_digtypeinfo_record()
{
    return type_record;
}

int ea_digconfiginfo(digconfiginfo **address)
{
    return vld::fam_alloc(address, config_record);
}
void ef_digconfiginfo(digconfiginfo *d)
{
    vld::rec_free(d, config_record);
}
int eg_digconfiginfo(digconfiginfo **address, const char *filename)
{
    return vld::fam_get(address, filename, config_record);
}
int eg_digconfiginfo_noalloc(digconfiginfo *d, const char *filename)
{
    return vld::rec_read(d, filename, config_record);
}
int ep_digconfiginfo(const digconfiginfo *d, const char *filename)
{
    return vld::rec_write(d, filename, config_record);
}

int ea_digsessioninfo(digsessioninfo **address)
{
    return vld::fam_alloc(address, session_record);
}
void ef_digsessioninfo(digsessioninfo *d)
{
    vld::rec_free(d, session_record);
}
int eg_digsessioninfo(digsessioninfo **address, const char *filename)
{
    return vld::fam_get(address, filename, session_record);
}
int eg_digsessioninfo_noalloc(digsessioninfo *d, const char *filename)
{
    return vld::rec_read(d, filename, session_record);
}
int ep_digsessioninfo(const digsessioninfo *d, const char *filename)
{
    return vld::rec_write(d, filename, session_record);
}

int ea_digtypeinfo(digtypeinfo **address)
{
    return vld::fam_alloc(address, type_record);
}
void ef_digtypeinfo(digtypeinfo *d)
{
    vld::rec_free(d, type_record);
}
int eg_digtypeinfo(digtypeinfo **address, const char *filename)
{
    return vld::fam_get(address, filename, type_record);
}
int eg_digtypeinfo_noalloc(digtypeinfo *d, const char *filename)
{
    return vld::rec_read(d, filename, type_record);
}
int ep_digtypeinfo(const digtypeinfo *d, const char *filename)
{
    return vld::rec_write(d, filename, type_record);
}
