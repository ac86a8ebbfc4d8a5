// The reader's route table. Each row is {key list, second list, routine, label}; the lists are
// kept exactly as the engine has always had them, odd entries included, since a file's key is
// matched by substring and the order of the rows decides which reader gets a file first.
#include "read/read_routes.h"

#include <array>

namespace pictavo::reader {
namespace {

constexpr std::array<ReadRoute, 78> kRoutes = {{
    {";cpc;", "", cpc_read, "cpc_read"},                                // 1
    {";hpi;", "", hpi_read, "hpi_read"},                                // 2
    {";flif;", "", flif_read, "flif_read"},                             // 3
    {";kap;", "", kap_read, "kap_read"},                                // 4
    {";pnm;dib;jpf;j2c;j2k;jpc;jp2;", "", jp2000_read, "jp2000_read"},  // 5
    {";png;apng;webp;webpll;", "", apng_read, "apng_read"},             // 6
    {";cine;", "", cine_read, "cine_read"},                             // 7
    // Row 8. Holds "tif" on purpose: every TIFF is first offered to camera raw (before row 49).
    {";ari;obm;3fr;cap;dcs;drf;eip;iiq;ptx;pxn;r3d;rwl;rwz;srw;cine;mef;qtk;rw2;arw;bay;bmq;cr2;"
     "crw;cs1;dc2;dcr;dng;erf;ia;k25;kc2;mdc;mos;mrw;nef;pef;pxn;raf;raw;rdc;sr2;srf;x3f;sti;fff;"
     "tif;iiq;",
     "", raw_read, "raw_read"},                                            // 8
    {";exr;hdr;", "", exr_read, "exr_read"},                               // 9
    {";jxr;", "", hdr_read, "hdr_read"},                                   // 10
    {";001;", "", adobe_read, "adobe_read"},                               // 11
    {";bif;", "", bif_read, "bif_read"},                                   // 12
    {";mix;fpx;", "", mix_fpx, "mix_fpx"},                                 // 13
    {";dds;", "", dds_read, "dds_read"},                                   // 14
    {";xif;", "", xif_read, "xif_read"},                                   // 15
    {";fits;fit;fts;", "", fits_by_setting, "fits_read / new_fits_read"},  // 16
    {";php;", "", new_php_read, "new_php_read"},                           // 17
    // Row 18. The ten general lists of the raster tool.
    {";img;rle;ima;arf;g4;ace;acorn;php;ocp;nav;pix;als;alias;bm;2d;ami;iff;blk;info;cpc;atk;hdru;"
     "art;art;a64;aip;arn;sim;afx;img;gm;gm2;gm4;epa;ssp;b3d;bfl;bfli;sir;bfx;pic;pi;bob;til;brk;"
     "301;brt;cal;cals;gp4;cg4;",
     "", f300_plus, "f300_plus"},  // 18
    {";cdu;cmu;cp8;cpi;crg;can;big;cam;cmt;clo;rix;scx;ce;ce1;ce2;idc;pat;bmf;cpt;ncd;nct;dbw;map;"
     "fpg;dis;dpx;sd0;sd1;sd2;img;pi;pc;lbm;tdim;graf;img;cmp;doo;dd;jj;cut;drz;pix;ecc;c4;ei;eidi;"
     "$s;$c;!c;scr;sna;",
     "", f300_plus, "f300_plus"},  // 19
    {";esm;tdi;iff;fit;g3;fax;map;fpg;fi;fits;fts;fit;fbm;cbm;geo;sul;xcf;gbr;pat;4bt;clp;hf;gro;"
     "grb;hru;zbr;mdl;jtf;hpi;m8;hed;hir;lif;kps;pse;im5;imt;ica;iss;icb;mif;miff;ish;ish;ism;rlc2;"
     "b&w;b_w;g3n;img;iim;",
     "", f300_plus, "f300_plus"},  // 20
    // Row 21. This list lacks its leading ";" on purpose: "iph" never matches.
    {"iph;ipt;itg;cit;rle;ct;iimg;jif;vi;btn;vif;viff;xv;skn;cel;koa;gg;cin;dpx;pcc;dcx;kfx;kqp;"
     "lvp;lda;lwi;lff;cel;pzp;mag;mgr;mtv;mac;mpnt;pic;pict;pct;fre;pd;mrf;411;pdx;bld;frm;pbt;mil;"
     "msp;img;ipg;pdb;pdb;sc2;mng;ncr;",
     "", f300_plus, "f300_plus"},  // 21
    {";pct;ntf;nitf;neo;nmp;stw;nlm;nol;oaz;bga;ofx;oil;abs;bga;pix;pic;clp;b16;pm;pcl;pmg;jbf;pfr;"
     "psp;msk;pat;tub;tex;pdb;pxa;pxs;art;pdb;fsy;psf;cat;apx;p64;prc;pic;pxr;picio;pixar;ib7;i17;"
     "i18;if9;pxa;pxb;pds;img;pspimage;",
     "", f300_plus, "f300_plus"},  // 22
    {";2bp;prf;pbm;rpbm;dcx;pgf;pgc;cvp;bum;pps;ppt;bs;pg;gb;pri;pic;mbm;ppp;pzl;q0;qdv;qrt;wal;"
     "vpb;qtif;qti;icn;rad;img;pic;rp;rgh;pic;rsb;j6i;001;pig;rpm;st4;stx;st4;st5;st6;st7;st8;dat;"
     "sar;sci;sct;sc;sfw;pwp;sj1;img;",
     "", f300_plus, "f300_plus"},  // 23
    {";rgb;bw;iris;sgi;skn;hrz;pan;pic;si;sir;pmp;tim;spu;spc;sps;ssi;pic;pac;seq;sdg;img;x;avs;"
     "mbfs;mbfavs;jps;ras;rast;sun;sr;scr;rs;iff;vff;suniff;taac;synu;syn;tg4;73i;82i;83i;85i;86i;"
     "89i;92i;hr;pdb;tnl;tny;tn1;tn2;tn3;",
     "", f300_plus, "f300_plus"},  // 24
    {";gaf;pst;upi;pe4;fac;face;rle;vit;wrl;vif;vic;vicar;img;vid;vda;vst;img;pix;vob;rla;rlb;fxm;"
     "fxs;fxo;ani;clp;xwd;x11;xbm;bm;xpm;pm;p7;xar;xif;xim;smp;yuv;qtl;uyvy;yuv;qtl;mim;wbc;wbp;"
     "wbz;wb1;wb0;jpm;",
     "", f300_plus, "f300_plus"},  // 25
    {";adt;bmg;ibg;bmx;bpr;bsg;cip;cpa;crd;dds;dol;dsi;dta;efx;ef3;f96;fcx;fmf;fp2;fun;fpr;fpt;ftf;"
     "fx3;g16;gig;gih;gmf;gun;ifl;icl;icns;imi;jig;jig;kap;mh;mic;mph;npm;nsr;ph;bn;gro2;gro4;pax;"
     "pcp;psa;psb;",
     "", f300_plus, "f300_plus"},  // 26
    {";pspbrush;pspframe;pspmask;sst;syj;tm2;tjp;trp;tsk;uni;v;vfx;wfx;wzl;kdc;pcd;fxr;fxd;gp4;ico;"
     "jpx;exr;jbg;nrw;mpo;",
     "", f300_plus, "f300_plus"},                           // 27
    {";psp;", "", psp_read, "psp_read"},                    // 28
    {";wbc;wbp;wbz;wb1;wb0;", "", webshots, "webshots"},    // 29
    {";mic;", "", new_mic_read, "new_mic_read"},            // 30
    {";cal;", "", new_cal_read, "new_cal_read"},            // 31
    {";cal;", "", vec_read, "vec_read"},                    // 32
    {";orf;", "", f300_plus_raw, "f300_plus (raw)"},        // 33
    {";xps;oxps;", "", vec_read, "vec_read"},               // 34
    {";sid;", "", sid_read, "sid_read"},                    // 35
    {";zip;7z;gz;arj;rar;tar;", "", zip_read, "zip_read"},  // 36
    {";nva;ai;pdf;pdp;", "", adobe_read, "adobe_read"},     // 37
    {";eps;ps;epi;", "", vec_read, "vec_read"},             // 38
    {";scn;", "", scn_read, "scn_read"},                    // 39
    {";scn;", "", scn_bio_read, "scn_bio_read"},            // 40
    {";prj;", "", new_prj_read, "new_prj_read"},            // 41
    // Row 42. Two lists: joined they would hold ";;" and catch files without extension.
    {";3d;3ds;ac;ac3d;acc;ase;ask;b3d;blend;bvh;cob;cms;dae;enff;fbx;hmp;ifc;ifczip;irr;irrmesh;"
     "lwo;lws;lxo;md2;md3;md5anim;md5camera;md5mesh;mdc;mdl;mesh;mot;ms3d;ndo;nff;obj;off;pk3;ply;"
     "prj;q3o;q3s;scn;smd;stl;",
     ";ter;uc;vta;x;xgl;zgl;3mf;amj;ogex;pmx;sib;stp;step;x3d;glb;", stl_read, "stl_read"},  // 42
    // Row 43. Two empty entries: a file without extension reaches vec_read here, before im_read
    // (row 77).
    {";tab;e00;bna;geojson;json;gxt;gmt;gtm;gtz;rec;000;ntf;gpx;kml;gml;kmz;fit;shp;;gbp;gpb;gko;"
     "gm2;gbo;gtp;gml;gm1;gbr;gbx;art;sol;stc;sts;plc;pls;drd;top;bot;smt;smb;sst;ssb;tap;gtl;gbl;"
     "gts;gbs;gto;drl;gm4;xln;pho;;pages;tab;dwfx;emf;wmf;svg;svgz;cdr;vsd;vss;vdx;vsdm;vsdx;e00;"
     "wmz;cgm;dgn;drw;dxf;dwg;dwf;shp;gbr;gbs;pct;mif;nap;plt;pcl;wpg;hpg;hpgl;hp2;pxl;prn;",
     "", vec_read, "vec_read"},                                             // 43
    {";bpg;", "", bpg_read, "bpg_read"},                                    // 44
    {";xfig;sk;sk1;aff;cmx;", "", uniconvertor_read, "uniconvertor_read"},  // 45
    {";doc;docx;rtf;", "", vec_read, "vec_read"},                           // 46
    {";swf;", "", swf_chain, "swf_read / png_swf_extract_from_zip"},        // 47
    {";djvu;", "", djvu_read, "djvu_read"},                                 // 48
    // Row 49. After camera raw (row 8); a deep TIFF is re-read by the raster tool afterwards in any
    // case.
    {";tif;tiff;", "", tif_read, "tif_read"},  // 49
    {";pdn;", "", pdn_read, "pdn_read"},       // 50
    {";ora;kra;", "", ora_read, "ora_read"},   // 51
    {";car;", "", car_read, "car_read"},       // 52
    {";psd;", "", psd_read, "psd_read"},       // 53
    {";orb;", "", orb_read, "orb_read"},       // 54
    {";raw;", "", bmp_raw_read_chain,
     "bmp_raw_with_header_read / bmp_raw_without_header_read"},  // 55
    {";ioca;prn;prt;cmp;abc;abic;ica;afp;awd;cmw;ecw;flc;hdp;jbg;ptk;sff;ptoca;im1;fli;wdp;jbig;",
     "", cmp_read, "cmp_read"},           // 56
    {";mag;", "", zip_read, "zip_read"},  // 57
    {";dcm;", "", dcm_read, "dcm_read"},  // 58
    // Row 59. Third try for ".cal" after rows 31 and 32.
    {";cal;", "", adobe_read, "adobe_read"},                        // 59
    {";psf;", "", psf_read, "psf_read"},                            // 60
    {";svs;", "", svs_read, "svs_read"},                            // 61
    {";eip;", "", new_eip_read, "new_eip_read"},                    // 62
    {";rgb;", "", rgb_read, "rgb_read"},                            // 63
    {";ntf;nitf;", "", ntf_read, "ntf_read"},                       // 64
    {";dst;", "", dst_read, "dst_read"},                            // 65
    {";txt;prt;001;", "", vec_read, "vec_read"},                    // 66
    {";mix;", "", mix_read, "mix_read"},                            // 67
    {";fits;fit;", "", fits_read, "fits_read"},                     // 68
    {";imd;", "", imd_read, "imd_read"},                            // 69
    {";heic;heif;hif;", "", heic_read, "heic_read"},                // 70
    {";cr3;", "", cr3_then_raw, "cr3_read / raw_read"},             // 71
    {";pat;", "", new_ppp_read, "new_ppp_read"},                    // 72
    {";upi;", "", new_upi_read, "new_upi_read"},                    // 73
    {";avif;", "", avif_read, "avif_read"},                         // 74
    {";dat;", "", dat_read_chain, "dat_mpeg_read / new_dat_read"},  // 75
    {";qoi;", "", qoi_read, "qoi_read"},                            // 76
    // Row 77. A file without extension, after vec_read (row 43).
    {";;", "", im_read, "im_read"},       // 77
    {";vsi;", "", vsi_read, "vsi_read"},  // 78
}};

}  // namespace

std::span<const ReadRoute> ReadRoutes() {
  return kRoutes;
}

}  // namespace pictavo::reader
