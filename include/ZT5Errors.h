/* Result codes of every Panoview operation. 0 is success. */
#ifndef ZT5_ERRORS_H
#define ZT5_ERRORS_H

#define ZT5_OK                  0
#define ZT5_ERR_UPDATE_FAILED   1
#define ZT5_ERR_INVALID_PARAM   2
#define ZT5_ERR_NO_MEMORY       3
#define ZT5_ERR_UNSUPPORTED     4
#define ZT5_ERR_NOT_READY       5
#define ZT5_ERR_UNKNOWN_TYPE    6
/* ZT5_CFG_DISPLAY_PICTURE: the frame asked for was not drawn within the wait. */
#define ZT5_ERR_TIMEOUT         7
#define ZT5_ERR_ALREADY_INITED  0x7001
#define ZT5_ERR_DISPLAY_CREATE  0x7002

#endif
