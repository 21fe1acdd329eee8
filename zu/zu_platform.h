/*
 * zu_platform.h - what callers of zu meet of the platform, for systems that are not the platform.
 *
 * On the native platform its own headers give all of this; elsewhere zu.h includes this file. It holds the
 * per-thread last-error code, the codes that it can hold, and the platform's types that cross the interface.
 */
#ifndef ZU_ZU_PLATFORM_H
#define ZU_ZU_PLATFORM_H

#include <netinet/in.h>
#include <stdint.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>

#ifndef __cplusplus
#include <uchar.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- The last-error code ------------------------------------------------------------------------------------ */

/* The address of the calling thread's last-error code: valid until the thread ends, for that thread only. */
__attribute__((visibility("default"))) uint32_t* zu_platform_last_error(void);

/* The reason of the latest failure on this thread. A call that succeeds leaves it alone, as a rule. */
static inline uint32_t GetLastError(void) {
    return *zu_platform_last_error();
}

/* Sets the code that GetLastError gives on this thread. */
static inline void SetLastError(uint32_t code) {
    *zu_platform_last_error() = code;
}

/* ---- Sockets ------------------------------------------------------------------------------------------------ */

/*
 * A socket is a descriptor of the system. Addresses, fd_set, timeval, levels, options and flags are the system's own,
 * from its headers above, under the names that they share with the platform.
 */
typedef uint32_t SOCKET;

/* No socket, and the result of a call that failed. */
#define INVALID_SOCKET ((SOCKET)0xFFFFFFFFu)
#define SOCKET_ERROR (-1)

/* The last-error code under the names that socket programs use: one value, read and set either way. */
static inline int WSAGetLastError(void) {
    return (int)GetLastError();
}

static inline void WSASetLastError(int code) {
    SetLastError((uint32_t)code);
}

/* ---- File times --------------------------------------------------------------------------------------------- */

/* A count of 100-nanosecond units since 1601-01-01 00:00:00 UTC, the low half first. */
typedef struct FILETIME {
    uint32_t dwLowDateTime;  /* the lower 32 bits */
    uint32_t dwHighDateTime; /* the upper 32 bits */
} FILETIME;

/* ---- Directory entries -------------------------------------------------------------------------------------- */

/*
 * The bits of an entry's attributes. NORMAL stands alone: it says that no other bit is set. DEVICE is what is neither
 * file nor directory (a pipe, a socket, a device), REPARSE_POINT a symbolic link that is reported itself.
 */
#define FILE_ATTRIBUTE_READONLY 0x1u
#define FILE_ATTRIBUTE_HIDDEN 0x2u
#define FILE_ATTRIBUTE_SYSTEM 0x4u
#define FILE_ATTRIBUTE_DIRECTORY 0x10u
#define FILE_ATTRIBUTE_ARCHIVE 0x20u
#define FILE_ATTRIBUTE_DEVICE 0x40u
#define FILE_ATTRIBUTE_NORMAL 0x80u
#define FILE_ATTRIBUTE_TEMPORARY 0x100u
#define FILE_ATTRIBUTE_REPARSE_POINT 0x400u
#define FILE_ATTRIBUTE_NOT_CONTENT_INDEXED 0x2000u
#define INVALID_FILE_ATTRIBUTES 0xFFFFFFFFu

/* The kind of a REPARSE_POINT, in dwReserved0. */
#define IO_REPARSE_TAG_SYMLINK 0xA000000Cu

/* One entry, as a search reports it. The name is terminated; there is never an alternate name here. */
typedef struct WIN32_FIND_DATAW {
    uint32_t dwFileAttributes;       /* FILE_ATTRIBUTE_ bits */
    FILETIME ftCreationTime;         /* when the entry was made */
    FILETIME ftLastAccessTime;       /* as the file system keeps it */
    FILETIME ftLastWriteTime;        /* when the content changed */
    uint32_t nFileSizeHigh;          /* size in bytes, the upper 32 bits */
    uint32_t nFileSizeLow;           /* and the lower */
    uint32_t dwReserved0;            /* the kind of a REPARSE_POINT, otherwise 0 */
    uint32_t dwReserved1;            /* nothing */
    char16_t cFileName[260];         /* the name */
    char16_t cAlternateFileName[14]; /* always empty */
} WIN32_FIND_DATAW;

/* ---- Calendar time ------------------------------------------------------------------------------------------ */

/* Broken-down local time: the runtime record of the platform, nine fields of 32 bits under their standard names. */
typedef struct ZU_tm {
    int32_t tm_sec;   /* 0 to 59 */
    int32_t tm_min;   /* 0 to 59 */
    int32_t tm_hour;  /* 0 to 23 */
    int32_t tm_mday;  /* 1 to 31 */
    int32_t tm_mon;   /* 0 to 11 */
    int32_t tm_year;  /* years since 1900 */
    int32_t tm_wday;  /* 0 to 6, Sunday = 0 */
    int32_t tm_yday;  /* 0 to 365 */
    int32_t tm_isdst; /* positive: daylight saving; 0: standard time; negative: to be found out */
} ZU_tm;

/* ---- Registry keys and modules ------------------------------------------------------------------------------ */

/* An open key of the registry, and a loaded library: handles without fields. */
typedef struct HKEY__* HKEY;
typedef struct HINSTANCE__* HMODULE;

/* The predefined keys: always open, never to be closed. */
#define HKEY_CLASSES_ROOT ((HKEY)(intptr_t)(int32_t)0x80000000u)
#define HKEY_CURRENT_USER ((HKEY)(intptr_t)(int32_t)0x80000001u)
#define HKEY_LOCAL_MACHINE ((HKEY)(intptr_t)(int32_t)0x80000002u)
#define HKEY_USERS ((HKEY)(intptr_t)(int32_t)0x80000003u)
#define HKEY_CURRENT_CONFIG ((HKEY)(intptr_t)(int32_t)0x80000005u)

/* ---- Services ----------------------------------------------------------------------------------------------- */

/* Kinds of services: one with a process of its own, or one that shares a process. */
#define SERVICE_WIN32_OWN_PROCESS 0x10
#define SERVICE_WIN32_SHARE_PROCESS 0x20

/* Starts of a service: with the system, when it is asked to, or never. */
#define SERVICE_AUTO_START 2
#define SERVICE_DEMAND_START 3
#define SERVICE_DISABLED 4

/* The states of a service. */
#define SERVICE_STOPPED 1
#define SERVICE_START_PENDING 2
#define SERVICE_STOP_PENDING 3
#define SERVICE_RUNNING 4
#define SERVICE_CONTINUE_PENDING 5
#define SERVICE_PAUSE_PENDING 6
#define SERVICE_PAUSED 7

/* ---- Last-error codes --------------------------------------------------------------------------------------- */

/* clang-format off */
#define ERROR_SUCCESS                           0
#define ERROR_INVALID_FUNCTION                  1
#define ERROR_FILE_NOT_FOUND                    2
#define ERROR_PATH_NOT_FOUND                    3
#define ERROR_TOO_MANY_OPEN_FILES               4
#define ERROR_ACCESS_DENIED                     5
#define ERROR_INVALID_HANDLE                    6
#define ERROR_ARENA_TRASHED                     7
#define ERROR_NOT_ENOUGH_MEMORY                 8
#define ERROR_INVALID_BLOCK                     9
#define ERROR_BAD_ENVIRONMENT                   10
#define ERROR_BAD_FORMAT                        11
#define ERROR_INVALID_ACCESS                    12
#define ERROR_INVALID_DATA                      13
#define ERROR_OUTOFMEMORY                       14
#define ERROR_INVALID_DRIVE                     15
#define ERROR_CURRENT_DIRECTORY                 16
#define ERROR_NOT_SAME_DEVICE                   17
#define ERROR_NO_MORE_FILES                     18
#define ERROR_WRITE_PROTECT                     19
#define ERROR_BAD_UNIT                          20
#define ERROR_NOT_READY                         21
#define ERROR_BAD_COMMAND                       22
#define ERROR_CRC                               23
#define ERROR_BAD_LENGTH                        24
#define ERROR_SEEK                              25
#define ERROR_NOT_DOS_DISK                      26
#define ERROR_SECTOR_NOT_FOUND                  27
#define ERROR_OUT_OF_PAPER                      28
#define ERROR_WRITE_FAULT                       29
#define ERROR_READ_FAULT                        30
#define ERROR_GEN_FAILURE                       31
#define ERROR_SHARING_VIOLATION                 32
#define ERROR_LOCK_VIOLATION                    33
#define ERROR_WRONG_DISK                        34
#define ERROR_SHARING_BUFFER_EXCEEDED           36
#define ERROR_HANDLE_EOF                        38
#define ERROR_HANDLE_DISK_FULL                  39
#define ERROR_NOT_SUPPORTED                     50
#define ERROR_REM_NOT_LIST                      51
#define ERROR_DUP_NAME                          52
#define ERROR_BAD_NETPATH                       53
#define ERROR_NETWORK_BUSY                      54
#define ERROR_DEV_NOT_EXIST                     55
#define ERROR_ADAP_HDW_ERR                      57
#define ERROR_BAD_NET_RESP                      58
#define ERROR_UNEXP_NET_ERR                     59
#define ERROR_NETNAME_DELETED                   64
#define ERROR_NETWORK_ACCESS_DENIED             65
#define ERROR_BAD_DEV_TYPE                      66
#define ERROR_BAD_NET_NAME                      67
#define ERROR_TOO_MANY_NAMES                    68
#define ERROR_SHARING_PAUSED                    70
#define ERROR_REQ_NOT_ACCEP                     71
#define ERROR_REDIR_PAUSED                      72
#define ERROR_FILE_EXISTS                       80
#define ERROR_CANNOT_MAKE                       82
#define ERROR_FAIL_I24                          83
#define ERROR_OUT_OF_STRUCTURES                 84
#define ERROR_ALREADY_ASSIGNED                  85
#define ERROR_INVALID_PASSWORD                  86
#define ERROR_INVALID_PARAMETER                 87
#define ERROR_NET_WRITE_FAULT                   88
#define ERROR_NO_PROC_SLOTS                     89
#define ERROR_TOO_MANY_SEMAPHORES               100
#define ERROR_EXCL_SEM_ALREADY_OWNED            101
#define ERROR_SEM_IS_SET                        102
#define ERROR_TOO_MANY_SEM_REQUESTS             103
#define ERROR_SEM_OWNER_DIED                    105
#define ERROR_SEM_USER_LIMIT                    106
#define ERROR_DISK_CHANGE                       107
#define ERROR_DRIVE_LOCKED                      108
#define ERROR_BROKEN_PIPE                       109
#define ERROR_OPEN_FAILED                       110
#define ERROR_BUFFER_OVERFLOW                   111
#define ERROR_DISK_FULL                         112
#define ERROR_NO_MORE_SEARCH_HANDLES            113
#define ERROR_INVALID_TARGET_HANDLE             114
#define ERROR_INVALID_CATEGORY                  117
#define ERROR_INVALID_VERIFY_SWITCH             118
#define ERROR_BAD_DRIVER_LEVEL                  119
#define ERROR_CALL_NOT_IMPLEMENTED              120
#define ERROR_SEM_TIMEOUT                       121
#define ERROR_INSUFFICIENT_BUFFER               122
#define ERROR_INVALID_NAME                      123
#define ERROR_INVALID_LEVEL                     124
#define ERROR_NO_VOLUME_LABEL                   125
#define ERROR_MOD_NOT_FOUND                     126
#define ERROR_PROC_NOT_FOUND                    127
#define ERROR_WAIT_NO_CHILDREN                  128
#define ERROR_CHILD_NOT_COMPLETE                129
#define ERROR_DIRECT_ACCESS_HANDLE              130
#define ERROR_NEGATIVE_SEEK                     131
#define ERROR_SEEK_ON_DEVICE                    132
#define ERROR_IS_JOIN_TARGET                    133
#define ERROR_BUSY_DRIVE                        142
#define ERROR_DIR_NOT_ROOT                      144
#define ERROR_DIR_NOT_EMPTY                     145
#define ERROR_LABEL_TOO_LONG                    154
#define ERROR_NOT_LOCKED                        158
#define ERROR_BAD_ARGUMENTS                     160
#define ERROR_BAD_PATHNAME                      161
#define ERROR_MAX_THRDS_REACHED                 164
#define ERROR_LOCK_FAILED                       167
#define ERROR_BUSY                              170
#define ERROR_CANCEL_VIOLATION                  173
#define ERROR_ATOMIC_LOCKS_NOT_SUPPORTED        174
#define ERROR_INVALID_SEGMENT_NUMBER            180
#define ERROR_INVALID_ORDINAL                   182
#define ERROR_ALREADY_EXISTS                    183
#define ERROR_INVALID_FLAG_NUMBER               186
#define ERROR_SEM_NOT_FOUND                     187
#define ERROR_INVALID_STARTING_CODESEG          188
#define ERROR_INVALID_STACKSEG                  189
#define ERROR_INVALID_MODULETYPE                190
#define ERROR_INVALID_EXE_SIGNATURE             191
#define ERROR_EXE_MARKED_INVALID                192
#define ERROR_BAD_EXE_FORMAT                    193
#define ERROR_ITERATED_DATA_EXCEEDS_64k         194
#define ERROR_INVALID_MINALLOCSIZE              195
#define ERROR_INVALID_AT_INTERRUPT_TIME         196
#define ERROR_IOPL_NOT_ENABLED                  197
#define ERROR_INVALID_SEGDPL                    198
#define ERROR_AUTODATASEG_EXCEEDS_64k           199
#define ERROR_RING2SEG_MUST_BE_MOVABLE          200
#define ERROR_RELOC_CHAIN_XEEDS_SEGLIM          201
#define ERROR_INFLOOP_IN_RELOC_CHAIN            202
#define ERROR_ENVVAR_NOT_FOUND                  203
#define ERROR_NO_SIGNAL_SENT                    205
#define ERROR_FILENAME_EXCED_RANGE              206
#define ERROR_META_EXPANSION_TOO_LONG           208
#define ERROR_BAD_PIPE                          230
#define ERROR_PIPE_BUSY                         231
#define ERROR_NO_DATA                           232
#define ERROR_PIPE_NOT_CONNECTED                233
#define ERROR_MORE_DATA                         234
#define ERROR_VC_DISCONNECTED                   240
#define ERROR_INVALID_EA_NAME                   254
#define ERROR_EA_LIST_INCONSISTENT              255
#define WAIT_TIMEOUT                            258
#define ERROR_NO_MORE_ITEMS                     259
#define ERROR_CANNOT_COPY                       266
#define ERROR_DIRECTORY                         267
#define ERROR_EAS_NOT_SUPPORTED                 282
#define ERROR_NOT_OWNER                         288
#define ERROR_TOO_MANY_POSTS                    298
#define ERROR_PARTIAL_COPY                      299
#define ERROR_MR_MID_NOT_FOUND                  317
#define ERROR_INVALID_ADDRESS                   487
#define ERROR_ARITHMETIC_OVERFLOW               534
#define ERROR_PIPE_CONNECTED                    535
#define ERROR_EA_ACCESS_DENIED                  994
#define ERROR_OPERATION_ABORTED                 995
#define ERROR_IO_INCOMPLETE                     996
#define ERROR_IO_PENDING                        997
#define ERROR_NOACCESS                          998
#define ERROR_STACK_OVERFLOW                    1001
#define ERROR_INVALID_MESSAGE                   1002
#define ERROR_CAN_NOT_COMPLETE                  1003
#define ERROR_INVALID_FLAGS                     1004
#define ERROR_UNRECOGNIZED_VOLUME               1005
#define ERROR_FILE_INVALID                      1006
#define ERROR_FULLSCREEN_MODE                   1007
#define ERROR_NO_TOKEN                          1008
#define ERROR_BADDB                             1009
#define ERROR_BADKEY                            1010
#define ERROR_CANTOPEN                          1011
#define ERROR_CANTREAD                          1012
#define ERROR_CANTWRITE                         1013
#define ERROR_REGISTRY_RECOVERED                1014
#define ERROR_REGISTRY_CORRUPT                  1015
#define ERROR_REGISTRY_IO_FAILED                1016
#define ERROR_NOT_REGISTRY_FILE                 1017
#define ERROR_KEY_DELETED                       1018
#define ERROR_NO_LOG_SPACE                      1019
#define ERROR_KEY_HAS_CHILDREN                  1020
#define ERROR_CHILD_MUST_BE_VOLATILE            1021
#define ERROR_NOTIFY_ENUM_DIR                   1022
#define ERROR_DEPENDENT_SERVICES_RUNNING        1051
#define ERROR_INVALID_SERVICE_CONTROL           1052
#define ERROR_SERVICE_REQUEST_TIMEOUT           1053
#define ERROR_SERVICE_NO_THREAD                 1054
#define ERROR_SERVICE_DATABASE_LOCKED           1055
#define ERROR_SERVICE_ALREADY_RUNNING           1056
#define ERROR_INVALID_SERVICE_ACCOUNT           1057
#define ERROR_SERVICE_DISABLED                  1058
#define ERROR_CIRCULAR_DEPENDENCY               1059
#define ERROR_SERVICE_DOES_NOT_EXIST            1060
#define ERROR_SERVICE_CANNOT_ACCEPT_CTRL        1061
#define ERROR_SERVICE_NOT_ACTIVE                1062
#define ERROR_FAILED_SERVICE_CONTROLLER_CONNECT 1063
#define ERROR_EXCEPTION_IN_SERVICE              1064
#define ERROR_DATABASE_DOES_NOT_EXIST           1065
#define ERROR_SERVICE_SPECIFIC_ERROR            1066
#define ERROR_PROCESS_ABORTED                   1067
#define ERROR_SERVICE_DEPENDENCY_FAIL           1068
#define ERROR_SERVICE_LOGON_FAILED              1069
#define ERROR_SERVICE_START_HANG                1070
#define ERROR_INVALID_SERVICE_LOCK              1071
#define ERROR_SERVICE_MARKED_FOR_DELETE         1072
#define ERROR_SERVICE_EXISTS                    1073
#define ERROR_ALREADY_RUNNING_LKG               1074
#define ERROR_SERVICE_DEPENDENCY_DELETED        1075
#define ERROR_BOOT_ALREADY_ACCEPTED             1076
#define ERROR_SERVICE_NEVER_STARTED             1077
#define ERROR_DUPLICATE_SERVICE_NAME            1078
#define ERROR_DIFFERENT_SERVICE_ACCOUNT         1079
#define ERROR_CANNOT_DETECT_DRIVER_FAILURE      1080
#define ERROR_NO_RECOVERY_PROGRAM               1081
#define ERROR_SERVICE_NOT_IN_EXE                1083
#define ERROR_END_OF_MEDIA                      1100
#define ERROR_FILEMARK_DETECTED                 1101
#define ERROR_BEGINNING_OF_MEDIA                1102
#define ERROR_SETMARK_DETECTED                  1103
#define ERROR_NO_DATA_DETECTED                  1104
#define ERROR_PARTITION_FAILURE                 1105
#define ERROR_INVALID_BLOCK_LENGTH              1106
#define ERROR_DEVICE_NOT_PARTITIONED            1107
#define ERROR_UNABLE_TO_LOCK_MEDIA              1108
#define ERROR_UNABLE_TO_UNLOAD_MEDIA            1109
#define ERROR_MEDIA_CHANGED                     1110
#define ERROR_BUS_RESET                         1111
#define ERROR_NO_MEDIA_IN_DRIVE                 1112
#define ERROR_NO_UNICODE_TRANSLATION            1113
#define ERROR_DLL_INIT_FAILED                   1114
#define ERROR_SHUTDOWN_IN_PROGRESS              1115
#define ERROR_IO_DEVICE                         1117
#define ERROR_NOT_ENOUGH_SERVER_MEMORY          1130
#define ERROR_POSSIBLE_DEADLOCK                 1131
#define ERROR_TOO_MANY_LINKS                    1142
#define ERROR_NO_ASSOCIATION                    1155
#define ERROR_DLL_NOT_FOUND                     1157
#define ERROR_DEVICE_NOT_CONNECTED              1167
#define ERROR_NOT_FOUND                         1168
#define ERROR_SESSION_CREDENTIAL_CONFLICT       1219
#define ERROR_CANCELLED                         1223
#define ERROR_CONNECTION_REFUSED                1225
#define ERROR_GRACEFUL_DISCONNECT               1226
#define ERROR_CONNECTION_INVALID                1229
#define ERROR_NETWORK_UNREACHABLE               1231
#define ERROR_HOST_UNREACHABLE                  1232
#define ERROR_PROTOCOL_UNREACHABLE              1233
#define ERROR_PORT_UNREACHABLE                  1234
#define ERROR_REQUEST_ABORTED                   1235
#define ERROR_CONNECTION_ABORTED                1236
#define ERROR_RETRY                             1237
#define ERROR_NOT_AUTHENTICATED                 1244
#define ERROR_NOT_LOGGED_ON                     1245
#define ERROR_NOT_ALL_ASSIGNED                  1300
#define ERROR_SOME_NOT_MAPPED                   1301
#define ERROR_UNKNOWN_REVISION                  1305
#define ERROR_REVISION_MISMATCH                 1306
#define ERROR_INVALID_OWNER                     1307
#define ERROR_INVALID_PRIMARY_GROUP             1308
#define ERROR_NO_IMPERSONATION_TOKEN            1309
#define ERROR_NO_LOGON_SERVERS                  1311
#define ERROR_NO_SUCH_LOGON_SESSION             1312
#define ERROR_NO_SUCH_PRIVILEGE                 1313
#define ERROR_PRIVILEGE_NOT_HELD                1314
#define ERROR_INVALID_ACCOUNT_NAME              1315
#define ERROR_USER_EXISTS                       1316
#define ERROR_NO_SUCH_USER                      1317
#define ERROR_GROUP_EXISTS                      1318
#define ERROR_NO_SUCH_GROUP                     1319
#define ERROR_WRONG_PASSWORD                    1323
#define ERROR_LOGON_FAILURE                     1326
#define ERROR_ACCOUNT_RESTRICTION               1327
#define ERROR_INVALID_LOGON_HOURS               1328
#define ERROR_INVALID_WORKSTATION               1329
#define ERROR_PASSWORD_EXPIRED                  1330
#define ERROR_ACCOUNT_DISABLED                  1331
#define ERROR_NONE_MAPPED                       1332
#define ERROR_INVALID_ACL                       1336
#define ERROR_INVALID_SID                       1337
#define ERROR_INVALID_SECURITY_DESCR            1338
#define ERROR_BAD_IMPERSONATION_LEVEL           1346
#define ERROR_BAD_TOKEN_TYPE                    1349
#define ERROR_NO_SECURITY_ON_OBJECT             1350
#define ERROR_NO_SUCH_DOMAIN                    1355
#define ERROR_INTERNAL_ERROR                    1359
#define ERROR_LOGON_TYPE_NOT_GRANTED            1385
#define ERROR_FILE_CORRUPT                      1392
#define ERROR_DISK_CORRUPT                      1393
#define ERROR_NO_SYSTEM_RESOURCES               1450
#define ERROR_WORKING_SET_QUOTA                 1453
#define ERROR_COMMITMENT_LIMIT                  1455
#define ERROR_TIMEOUT                           1460
#define RPC_S_SERVER_UNAVAILABLE                1722
#define ERROR_INVALID_USER_BUFFER               1784
#define ERROR_ACCOUNT_EXPIRED                   1793
#define ERROR_PASSWORD_MUST_CHANGE              1907
#define ERROR_ACCOUNT_LOCKED_OUT                1909
#define ERROR_CANT_ACCESS_FILE                  1920
#define ERROR_CANT_RESOLVE_FILENAME             1921
#define WSAEINTR                                10004
#define WSAEBADF                                10009
#define WSAEACCES                               10013
#define WSAEFAULT                               10014
#define WSAEINVAL                               10022
#define WSAEMFILE                               10024
#define WSAEWOULDBLOCK                          10035
#define WSAEINPROGRESS                          10036
#define WSAEALREADY                             10037
#define WSAENOTSOCK                             10038
#define WSAEDESTADDRREQ                         10039
#define WSAEMSGSIZE                             10040
#define WSAEPROTOTYPE                           10041
#define WSAENOPROTOOPT                          10042
#define WSAEPROTONOSUPPORT                      10043
#define WSAESOCKTNOSUPPORT                      10044
#define WSAEOPNOTSUPP                           10045
#define WSAEPFNOSUPPORT                         10046
#define WSAEAFNOSUPPORT                         10047
#define WSAEADDRINUSE                           10048
#define WSAEADDRNOTAVAIL                        10049
#define WSAENETDOWN                             10050
#define WSAENETUNREACH                          10051
#define WSAENETRESET                            10052
#define WSAECONNABORTED                         10053
#define WSAECONNRESET                           10054
#define WSAENOBUFS                              10055
#define WSAEISCONN                              10056
#define WSAENOTCONN                             10057
#define WSAESHUTDOWN                            10058
#define WSAETOOMANYREFS                         10059
#define WSAETIMEDOUT                            10060
#define WSAECONNREFUSED                         10061
#define WSAELOOP                                10062
#define WSAENAMETOOLONG                         10063
#define WSAEHOSTDOWN                            10064
#define WSAEHOSTUNREACH                         10065
#define WSAENOTEMPTY                            10066
#define WSAEPROCLIM                             10067
#define WSAEUSERS                               10068
#define WSAEDQUOT                               10069
#define WSAESTALE                               10070
#define WSAEREMOTE                              10071
#define WSASYSNOTREADY                          10091
#define WSAVERNOTSUPPORTED                      10092
#define WSANOTINITIALISED                       10093
#define WSAEDISCON                              10101
#define WSAENOMORE                              10102
#define WSAECANCELLED                           10103
#define WSAEINVALIDPROCTABLE                    10104
#define WSAEINVALIDPROVIDER                     10105
#define WSAEPROVIDERFAILEDINIT                  10106
#define WSASYSCALLFAILURE                       10107
#define WSASERVICE_NOT_FOUND                    10108
#define WSATYPE_NOT_FOUND                       10109
#define WSA_E_NO_MORE                           10110
#define WSA_E_CANCELLED                         10111
#define WSAEREFUSED                             10112
#define WSAHOST_NOT_FOUND                       11001
#define WSATRY_AGAIN                            11002
#define WSANO_RECOVERY                          11003
#define WSANO_DATA                              11004
#define WSA_QOS_RECEIVERS                       11005
#define WSA_QOS_SENDERS                         11006
#define WSA_QOS_NO_SENDERS                      11007
#define WSA_QOS_NO_RECEIVERS                    11008
#define WSA_QOS_REQUEST_CONFIRMED               11009
#define WSA_QOS_ADMISSION_FAILURE               11010
#define WSA_QOS_POLICY_FAILURE                  11011
#define WSA_QOS_BAD_STYLE                       11012
#define WSA_QOS_BAD_OBJECT                      11013
#define WSA_QOS_TRAFFIC_CTRL_ERROR              11014
#define WSA_QOS_GENERIC_ERROR                   11015
#define WSA_QOS_ESERVICETYPE                    11016
#define WSA_QOS_EFLOWSPEC                       11017
#define WSA_QOS_EPROVSPECBUF                    11018
#define WSA_QOS_EFILTERSTYLE                    11019
#define WSA_QOS_EFILTERTYPE                     11020
#define WSA_QOS_EFILTERCOUNT                    11021
#define WSA_QOS_EOBJLENGTH                      11022
#define WSA_QOS_EFLOWCOUNT                      11023
#define WSA_QOS_EUNKNOWNPSOBJ                   11024
#define WSA_QOS_EPOLICYOBJ                      11025
#define WSA_QOS_EFLOWDESC                       11026
#define WSA_QOS_EPSFLOWSPEC                     11027
#define WSA_QOS_EPSFILTERSPEC                   11028
#define WSA_QOS_ESDMODEOBJ                      11029
#define WSA_QOS_ESHAPERATEOBJ                   11030
#define WSA_QOS_RESERVED_PETYPE                 11031
/* clang-format on */

#ifdef __cplusplus
}
#endif

#endif
