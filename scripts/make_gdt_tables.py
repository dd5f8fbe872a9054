#!/usr/bin/env python3
"""Writes the datum, projection and datum-change tables of share/vorlan/GDT_DATA.

The tables are published constants: ellipsoids by their semi-major axis and
inverse flattening, projections by the parameters of the national or world
system they name, datum changes by the published seven (or three) parameter
transformations to WGS84.

Conventions of the tables, which the engine reads as they stand:
  * angles of projection parameters are radians (written here from degrees);
  * datum eccentricity is e, not e squared;
  * Bursa-Wolf rotations are radians in the position-vector sense: rows
    published in the coordinate-frame sense have their rotations negated
    here, and arc seconds are converted; the scale change stays in ppm.

Run: scripts/make_gdt_tables.py [OUTPUT_DIR]  (default share/vorlan/GDT_DATA)
"""
import math
import os
import sys

OUT = sys.argv[1] if len(sys.argv) > 1 else os.path.join(
    os.path.dirname(os.path.abspath(__file__)), "..", "share", "vorlan", "GDT_DATA")

# name: (semi-major axis in metres, inverse flattening; 0 for a sphere)
ELLIPSOIDS = {
    "WGS84": (6378137.0, 298.257223563),
    "GRS80": (6378137.0, 298.257222101),
    "CLARKE1866": (6378206.4, 294.9786982),
    "CLARKE1880IGN": (6378249.2, 293.4660212936269),
    "INTERNATIONAL": (6378388.0, 297.0),
    "AIRY": (6377563.396, 299.3249646),
    "ANS": (6378160.0, 298.25),
    "BESSEL": (6377397.155, 299.1528128),
    "KRASSOVSKY": (6378245.0, 298.3),
    "EVEREST1830_67": (6377298.556, 300.8017),
    "SPHERE": (6371000.0, 0.0),
}
SPHEROID_CODES = {name: i + 1 for i, name in enumerate(ELLIPSOIDS)}

# datum: (ellipsoid, origin or tie point)
DATUMS = {
    "WGS84": ("WGS84", "World Geodetic System 1984"),
    "NAD27": ("CLARKE1866", "Meades Ranch"),
    "NAD83": ("GRS80", "geocentric"),
    "ED50": ("INTERNATIONAL", "Helmertturm, Potsdam"),
    "ETRS89": ("GRS80", "geocentric"),
    "OSGB36": ("AIRY", "Herstmonceux"),
    "AGD66": ("ANS", "Johnston"),
    "AGD84": ("ANS", "Johnston"),
    "GDA94": ("GRS80", "geocentric"),
    "GDA2020": ("GRS80", "geocentric"),
    "NZGD49": ("INTERNATIONAL", "Papatahi"),
    "NZGD2000": ("GRS80", "geocentric"),
    "DHDN": ("BESSEL", "Rauenberg"),
    "TOKYO": ("BESSEL", "Tokyo"),
    "AMERSFOORT": ("BESSEL", "Amersfoort"),
    "CH1903": ("BESSEL", "Bern"),
    "RGF93": ("GRS80", "geocentric"),
    "NTF": ("CLARKE1880IGN", "Pantheon"),
    "TANANARIVE": ("INTERNATIONAL", "Tananarive observatory"),
    "TIMBALAI1948": ("EVEREST1830_67", "Timbalai"),
    "SPHERE": ("SPHERE", ""),
}

# Published transformations to WGS84: (tx, ty, tz in metres, rx, ry, rz in
# arc seconds, scale change in ppm, sense: "PV" position vector, "CF"
# coordinate frame, "T" translation only).
TO_WGS84 = {
    "NAD27": (-8.0, 160.0, 176.0, 0, 0, 0, 0, "T"),
    "NAD83": (0, 0, 0, 0, 0, 0, 0, "T"),
    "ED50": (-87.0, -98.0, -121.0, 0, 0, 0, 0, "T"),
    "ETRS89": (0, 0, 0, 0, 0, 0, 0, "T"),
    "OSGB36": (446.448, -125.157, 542.06, 0.15, 0.247, 0.842, -20.489, "PV"),
    "AGD66": (-133.0, -48.0, 148.0, 0, 0, 0, 0, "T"),
    "AGD84": (-116.0, -50.47, 141.69, -0.23, -0.39, -0.344, 0.0983, "CF"),
    "GDA94": (0, 0, 0, 0, 0, 0, 0, "T"),
    "GDA2020": (0, 0, 0, 0, 0, 0, 0, "T"),
    "NZGD49": (59.47, -5.04, 187.44, -0.47, 0.1, -1.024, -4.5993, "CF"),
    "NZGD2000": (0, 0, 0, 0, 0, 0, 0, "T"),
    "DHDN": (598.1, 73.7, 418.2, 0.202, 0.045, -2.455, 6.7, "PV"),
    "TOKYO": (-146.414, 507.337, 680.507, 0, 0, 0, 0, "T"),
    "AMERSFOORT": (565.2369, 50.0087, 465.658, 1.9725, -1.7004, 9.0677, 4.0812, "CF"),
    "CH1903": (660.077, 13.551, 369.344, 2.484, 1.783, 2.939, 5.66, "CF"),
    "RGF93": (0, 0, 0, 0, 0, 0, 0, "T"),
    "NTF": (-168.0, -60.0, 320.0, 0, 0, 0, 0, "T"),
    "TANANARIVE": (-189.0, -242.0, -91.0, 0, 0, 0, 0, "T"),
    "TIMBALAI1948": (-678.0, 670.0, -48.0, 0, 0, 0, 0, "T"),
}

ARCSEC = math.pi / (180 * 3600)


def rad(deg):
    return math.radians(deg)


def num(v):
    return repr(float(v)) if isinstance(v, float) else str(v)


def write(name, header, rows):
    with open(os.path.join(OUT, name + ".dat"), "w") as f:
        f.write(",".join(header) + "\n")
        for row in rows:
            f.write(",".join(num(v) for v in row) + "\n")


def datum_tables():
    sp, desc = [], []
    for code, (name, (ell, origin)) in enumerate(DATUMS.items(), 1):
        a, rf = ELLIPSOIDS[ell]
        f = 1 / rf if rf else 0.0
        e = math.sqrt(2 * f - f * f)
        sp.append((name, code, a, e, 1.0, 0.0, SPHEROID_CODES[ell], rf))
        desc.append((name, ell, origin))
    write("datum_sp", ["name", "code", "radius", "eccentricity", "metre_factor", "prime_merid",
                       "spheroid_code", "inverse_flattening"], sp)
    write("datum", ["name", "spheroid_name", "origin_name"], desc)


def change_tables():
    cha, bw = [], []
    for name, (tx, ty, tz, rx, ry, rz, ds, sense) in TO_WGS84.items():
        sign = -1.0 if sense == "CF" else 1.0
        key = name + ">WGS84"
        cha.append((key, "bursawol"))
        bw.append((key, float(tx), float(ty), float(tz), sign * rx * ARCSEC, sign * ry * ARCSEC,
                   sign * rz * ARCSEC, float(ds)))
    # Grid shifts, converted at build time from the NTv2 grids of the
    # projection library's data package (tools/gdt/gdt_gsb2grid.cpp).
    ntv2 = [("NZGD49>NZGD2000", "nzgd2kgrid0005.grd"), ("DHDN>ETRS89", "BETA2007.grd"),
            ("NTF>RGF93", "ntf_r93.grd")]
    cha += [(key, "ntv2") for key, _ in ntv2]
    write("ntv2", ["name", "control_file"], ntv2)
    write("datumcha", ["name", "change_type"], cha)
    write("bursawol", ["name", "translation_x", "translation_y", "translation_z", "rotation_x",
                       "rotation_y", "rotation_z", "scale_change"], bw)


def projection_tables():
    project = []
    tm = []
    utm = []
    merc = []

    def tmerc(name, fe, fn, k, lon0, lat0, unit=1.0):
        project.append((name, "tranmerc", unit))
        tm.append((name, float(fe), float(fn), float(k), rad(lon0), rad(lat0)))

    for zone in range(1, 61):
        for hemi in "NS":
            name = "%sUTM%d" % (hemi, zone)
            project.append((name, "utm", 1.0))
            utm.append((name, zone, hemi))
    for zone in range(48, 59):
        # Australian Map Grid on AGD66 and Map Grid of Australia on GDA94.
        tmerc("TMAMG%d" % zone, 500000, 10000000, 0.9996, zone * 6 - 183, 0)
        tmerc("MGA%d" % zone, 500000, 10000000, 0.9996, zone * 6 - 183, 0)
    tmerc("BNG", 400000, -100000, 0.9996012717, -2, 49)              # British National Grid
    for zone in range(2, 6):                                           # Gauss-Krueger, Germany
        tmerc("GK%d" % zone, zone * 1000000 + 500000, 0, 1.0, zone * 3, 0)
    tmerc("NZTM", 1600000, 10000000, 0.9996, 173, 0)                  # New Zealand TM 2000
    project.append(("MERCATOR", "mercator", 1.0))                      # world Mercator
    merc.append(("MERCATOR", 0.0, 0.0, 1.0, 0.0))

    others = {}

    def row(base, name, header, values):
        project.append((name, base, 1.0))
        others.setdefault(base, (header, []))[1].append((name,) + tuple(values))

    world = ["false_east", "false_north", "centre_merid"]
    for base, name in (("mollweid", "MOLLWEIDE"), ("eckertiv", "ECKERT4"), ("eckertvi", "ECKERT6"),
                       ("millercy", "MILLER")):
        row(base, name, world, (0.0, 0.0, 0.0))
    row("sinusoid", "SINUSOIDAL", world, (0.0, 0.0, 0.0))
    row("placaree", "PLATECARREE", world + ["centre_lat"], (0.0, 0.0, 0.0, 0.0))
    azimuthal = ["false_east", "false_north", "origin_lat", "origin_long"]
    row("orthog", "ORTHO_EQ", azimuthal, (0.0, 0.0, 0.0, 0.0))
    row("orthog", "ORTHO_EUROPE", azimuthal, (0.0, 0.0, rad(50), rad(10)))
    row("gnomonic", "GNOMONIC_EQ", azimuthal, (0.0, 0.0, 0.0, 0.0))
    row("gnomonic", "GNOMONIC_NP", azimuthal, (0.0, 0.0, rad(90), 0.0))
    # Lambert-93 of France, on RGF93.
    row("lamcon2", "LAMBERT93", ["false_east", "false_north", "centre_merid", "first_paral",
                                 "second_paral", "centre_lat"],
        (700000.0, 6600000.0, rad(3), rad(49), rad(44), rad(46.5)))
    stereo = ["false_east", "false_north", "scale_factor", "centre_merid", "origin_lat", "true_lat"]
    # Universal Polar Stereographic, north and south; the Antarctic polar
    # stereographic, true at 71 S; an oblique view of the Netherlands.
    row("stereo", "UPS_NORTH", stereo, (2000000.0, 2000000.0, 0.994, 0.0, rad(90), rad(90)))
    row("stereo", "UPS_SOUTH", stereo, (2000000.0, 2000000.0, 0.994, 0.0, rad(-90), rad(-90)))
    row("stereo", "ANTARCTIC_PS", stereo, (0.0, 0.0, 1.0, 0.0, rad(-90), rad(-71)))
    row("stereo", "STEREO_NL", stereo, (155000.0, 463000.0, 0.9999079, rad(5.38763888888889),
                                        rad(52.15616055555555), rad(90)))
    # The European grid of equal area (ETRS89-LAEA), and a polar view.
    laea = ["false_east", "false_north", "scale_factor", "centre_merid", "centre_lat"]
    row("lambazea", "LAEA_EUROPE", laea, (4321000.0, 3210000.0, 1.0, rad(10), rad(52)))
    row("lambazea", "LAEA_NORTH", laea, (0.0, 0.0, 1.0, rad(-40), rad(90)))
    # Winkel tripel, true at the parallel whose cosine is 2/pi.
    row("winktrip", "WINKEL_TRIPEL", ["false_east", "false_north", "scale_factor", "centre_merid",
                                      "centre_lat"], (0.0, 0.0, 1.0, 0.0, math.acos(2 / math.pi)))
    # The polyconic of Brazil's national mapping.
    row("regpol", "POLYCONIC_BRAZIL", ["false_east", "false_north", "scale_factor", "centre_merid",
                                       "centre_lat"], (5000000.0, 10000000.0, 1.0, rad(-54), 0.0))
    # Soldner Berlin, on DHDN.
    row("cassini", "SOLDNER_BERLIN", ["false_east", "false_north", "centre_merid", "centre_lat"],
        (40000.0, 10000.0, rad(13.62720366666667), rad(52.41864827777778)))
    row("bonne", "BONNE_EUROPE", ["false_east", "false_north", "centre_merid", "centre_lat"],
        (0.0, 0.0, rad(10), rad(45)))
    # The equidistant conic of the former Soviet Union's atlas maps.
    row("coniced", "EQDC_RUSSIA", ["false_east", "false_north", "centre_merid", "centre_lat",
                                   "first_paral", "second_paral"],
        (0.0, 0.0, rad(100), rad(55), rad(47), rad(62)))
    albers = ["false_east", "false_north", "first_paral", "second_paral", "origin_lat",
              "origin_long"]
    # Australian Albers (GDA94) and the conterminous United States (NAD83).
    row("albersea", "ALBERS_AU", albers, (0.0, 0.0, rad(-18), rad(-36), 0.0, rad(132)))
    row("albersea", "ALBERS_US", albers, (0.0, 0.0, rad(29.5), rad(45.5), rad(23), rad(-96)))

    # World maps: Robinson's and van der Grinten's, on the datum's sphere.
    row("robinson", "ROBINSON", world, (0.0, 0.0, 0.0))
    row("grinten", "VANDERGRINTEN", world, (0.0, 0.0, 0.0))
    # Azimuthal equidistant views: the north and south polar ones, the world
    # about the origin of longitude and latitude, and one of Europe.
    row("azimuted", "AZEQ_NORTH", azimuthal, (0.0, 0.0, rad(90), 0.0))
    row("azimuted", "AZEQ_SOUTH", azimuthal, (0.0, 0.0, rad(-90), 0.0))
    row("azimuted", "AZEQ_WORLD", azimuthal, (0.0, 0.0, 0.0, 0.0))
    row("azimuted", "AZEQ_EUROPE", azimuthal, (0.0, 0.0, rad(52), rad(10)))
    # Lambert zone II (extended) of France on NTF, its meridian of Paris given
    # from Greenwich; and the metric grid of Jamaica.
    lcc1 = ["false_east", "false_north", "scale_factor", "centre_merid", "centre_lat"]
    row("lamcon1", "NTF_LAMBERT_IIE", lcc1,
        (600000.0, 2200000.0, 0.99987742, rad(2.337229166666667), rad(46.8)))
    row("lamcon1", "JAMAICA_GRID", lcc1, (750000.0, 650000.0, 1.0, rad(-77), rad(18)))

    # Hotine's oblique Mercator: Alaska's zone 1 of the State Plane (NAD83)
    # with its origin at the centre, Nakhl-e Taqi of Iran (on the
    # International ellipsoid) at the natural origin; and Borneo's rectified
    # skew orthomorphic grid, whose other constants are fixed by its member.
    hotine = ["false_east", "false_north", "scale_factor", "azimuth_angl", "origin_lat",
              "origin_long"]
    row("obmerc_b", "OMALSK1M", hotine, (5000000.0, -5000000.0, 0.9999,
                                         math.atan2(-3, 4), rad(57), rad(-133.6666666666667)))
    row("obmerc_c", "NAKHL_E_TAQI", hotine,
        (658377.437, 3044969.194, 0.999895934, rad(0.5716611944444444), rad(27.51882880555555),
         rad(52.60353916666667)))
    row("borneo", "RSO_BORNEO", ["scale_factor"], (0.99984,))

    # National grids: the Netherlands' RD on Amersfoort (origin and scale
    # fixed by the member), Switzerland's LV03 on CH1903 about Bern, and the
    # New Zealand Map Grid on NZGD49.
    row("dutch", "RD_NEW", ["false_east", "false_north"], (155000.0, 463000.0))
    row("swiss", "SWISS_LV03", ["false_east", "false_north", "centre_merid", "centre_lat"],
        (600000.0, 200000.0, rad(7.439583333333333), rad(46.95240555555556)))
    row("nzmapgrd", "NZMG", ["false_east", "false_north", "centre_merid", "centre_lat"],
        (2510000.0, 6023150.0, rad(173), rad(-41)))
    # The Danish systems are named, though their member cannot yet run them.
    danish = ["sub_proj_type", "xdirection"]
    for code, name in enumerate(("S34J", "S34S", "S45B"), 1):
        row("danish_uts", name, danish, (code, 1))

    # Lambert conics of the State Plane (NAD83, metres): Connecticut and
    # Texas Central; and Lambert zone I of France on NTF, its meridian of
    # Paris given from Greenwich.
    lcc2 = ["false_east", "false_north", "scale_factor", "centre_merid", "centre_lat",
            "first_paral", "second_paral"]
    row("lambert2", "LM2CONNM", lcc2, (304800.6096, 152400.3048, 1.0, rad(-72.75),
                                       rad(40.83333333333334), rad(41.86666666666667), rad(41.2)))
    row("lambert2", "LM2TXCM", lcc2, (700000.0, 3000000.0, 1.0, rad(-100.3333333333333),
                                      rad(29.66666666666667), rad(31.88333333333333),
                                      rad(30.11666666666667)))
    row("lambert1", "NTF_LAMBERT_I", lcc1,
        (600000.0, 200000.0, 0.99987734, rad(2.337229166666667), rad(49.5)))

    # Laborde's grid of Madagascar on Tananarive: origin 21 grads south,
    # 49 grads east of Paris, azimuth 21 grads, given here in degrees from
    # Greenwich.
    row("labordom", "LABORDE_MADAGASCAR",
        ["false_east", "false_north", "scale_factor", "origin_lat", "origin_long", "true_bearing",
         "tissot_ind"],
        (400000.0, 800000.0, 0.9995, rad(-18.9), rad(46.43722916666667), rad(18.9), 0.0))

    # A sheet of the International Map of the World, 44 to 48 N and 6 to 12 E,
    # with its edges as the true parallels and its origin at the middle of the
    # southern edge.
    row("modpol", "IMW_NL32", ["centre_merid", "centre_lat", "first_paral", "second_paral"],
        (rad(9), rad(44), rad(44), rad(48)))

    # Modified stereographic projections with their published complex
    # coefficients: Miller's oblated stereographic of Europe and Africa (on the
    # sphere), the 50 states of the United States and Alaska (on Clarke 1866).
    modstero = (["false_east", "false_north", "centre_merid", "centre_lat", "num_const"] +
                ["coeff_a%d" % j for j in range(1, 11)] + ["coeff_b%d" % j for j in range(1, 11)])

    def modified_stereo(name, lon0, lat0, coeffs):
        a = [c[0] for c in coeffs] + [0.0] * (10 - len(coeffs))
        b = [c[1] for c in coeffs] + [0.0] * (10 - len(coeffs))
        row("modstero", name, modstero, [0.0, 0.0, rad(lon0), rad(lat0), len(coeffs)] + a + b)

    modified_stereo("MILLER_OS", 20, 18, [(0.9245, 0.0), (0.0, 0.0), (0.01943, 0.0)])
    modified_stereo("GS50", -120, 45, [
        (0.9827497, 0.0), (0.0210669, 0.0053804), (-0.1031415, -0.0571664),
        (-0.0323337, -0.0322847), (0.0502303, 0.1211983), (0.0251805, 0.0895678),
        (-0.0012315, -0.1416121), (0.0072202, -0.1317091), (-0.0194029, 0.0759677),
        (-0.0210072, 0.0834037)])
    modified_stereo("ALASKA_MS", -152, 64, [
        (0.9945303, 0.0), (0.0052083, -0.0027404), (0.0072721, 0.0048181),
        (-0.0151089, -0.1932526), (0.0642675, -0.1381226), (0.3582802, -0.2884586)])

    # The bipolar oblique conic conformal map of the Americas.
    row("bioconco", "BIPOLAR_AMERICAS", world, (0.0, 0.0, 0.0))

    write("project", ["name", "type", "metre_factor", "radius", "eccentricity", "prime_merid"],
          [(n, t, f, "", "", "") for n, t, f in project])
    write("tranmerc", ["name", "false_east", "false_north", "scale_factor", "centre_merid",
                       "centre_lat"], tm)
    write("stm", ["name", "false_east", "false_north", "scale_factor", "centre_merid",
                  "centre_lat"], [])
    write("utm", ["name", "zone", "hemisphere"], utm)
    write("mercator", ["name", "false_east", "false_north", "scale_factor", "centre_merid"], merc)
    for base, (header, rows) in others.items():
        write(base, ["name"] + header, rows)


def main():
    os.makedirs(OUT, exist_ok=True)
    datum_tables()
    change_tables()
    projection_tables()
    for grid_table in ("smith", "nadwin32"):
        write(grid_table, ["name", "control_file"], [])


if __name__ == "__main__":
    main()
