/* The scheduler's own status words (facility 0x0bd). These values travel in replies and are
 * printed by their texts (syserr2str): never renumber. Time functions return them negated. */
#ifndef SCHEDCLI_STATUS_H
#define SCHEDCLI_STATUS_H

#define SCH_STATUS_EXISTS 0x40bd0002u              /* job or schedule exists already */
#define SCH_STATUS_NO_CREDENTIAL 0x40bd0007u       /* no user name, or empty user name or password */
#define SCH_STATUS_TIME_FORMAT 0x40bd000bu         /* incorrect time format */
#define SCH_STATUS_TIME_FORMAT_ALT 0x40bd000cu     /* incorrect time format */
#define SCH_STATUS_OUT_OF_RANGE 0x40bd000du        /* value out of range */
#define SCH_STATUS_TIME_IN_PAST 0x40bd000eu        /* specified time is in the past */
#define SCH_STATUS_AUTH_FAILED 0x40bd000fu         /* authentication failed */
#define SCH_STATUS_CREDENTIAL_FETCH 0x40bd0010u    /* credential could not be fetched */
#define SCH_STATUS_LOCAL_USER 0x40bd0017u          /* local user: no password may be stored */
#define SCH_STATUS_NO_SUCH_JOB 0x40bd0020u         /* no job of that name */
#define SCH_STATUS_NO_SUCH_SCHEDULE 0x40bd0021u    /* no schedule of that name */
#define SCH_STATUS_JOB_TABLE_FULL 0x40bd0022u      /* all 256 job slots are in use */
#define SCH_STATUS_TOO_MANY_EMAILS 0x40bd0023u     /* the schedule has ten addresses already */
#define SCH_STATUS_BAD_REQUEST 0x40bd0024u         /* request record malformed or inconsistent */
#define SCH_STATUS_UNKNOWN_REQUEST 0x40bd0025u     /* request type the daemon does not serve */
#define SCH_STATUS_PERMISSION 0x40bd0026u          /* credential of another user */
#define SCH_STATUS_TEXT_TOO_LONG 0x40bd0027u       /* job command text above 8182 bytes */
#define SCH_STATUS_NO_MEMORY 0x40bd0028u           /* the daemon could not allocate */
#define SCH_STATUS_STANDBY 0x40bd0029u             /* a standby daemon takes no changes */
#define SCH_STATUS_FEATURE_DISABLED 0x40bd002au    /* the scheduler feature is off */
#define SCH_STATUS_NO_SUCH_FEATURE 0x40bd002bu     /* feature request for another feature */
#define SCH_STATUS_NO_SUCH_FACILITY 0x40bd002cu    /* logging level of another facility */
#define SCH_STATUS_LOG_FILE_EXISTS 0x40bd002du     /* log file rename onto an existing file */
#define SCH_STATUS_LOG_FILE_DIRECTORY 0x40bd002eu  /* log file rename into a missing directory */
#define SCH_STATUS_LOG_FILE_PLACE 0x40bd002fu      /* log file outside the state and runtime directories */
#define SCH_STATUS_LOG_FILE_IO 0x40bd0030u         /* the log file could not be created, moved or emptied */
#define SCH_STATUS_COPY_FAILED 0x40bd0031u         /* running to startup copy failed */
#define SCH_STATUS_NOT_PERMITTED 0x40bd0032u       /* the caller may not make this change */
#define SCH_STATUS_BAD_ADDRESS 0x40bd0033u         /* not one local@domain address */
#define SCH_STATUS_BAD_TEXT 0x40bd0034u            /* text that configuration text cannot carry */

#endif
