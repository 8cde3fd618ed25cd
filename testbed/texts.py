"""Texts that several tests use: paths on the vendor's hosts, and what a run prints, piece by piece."""

# A file's path on the vendor's hosts is also its path below PUBLIC_TREE in a machine.
PUBLIC_TREE = "/srv/vendor/site"
SCRIPTED_PATH = "/VestRUM2/Scripted"
PUBLISHED_SCRIPTED = f"{PUBLIC_TREE}{SCRIPTED_PATH}"
VERSION_PATH = f"{SCRIPTED_PATH}/VestRUM-db-version.txt"
CONTAINER_PATH = f"{SCRIPTED_PATH}/VestRUM.cud"
DEFINITIONS_PATH = "/VestRUM2/Vestrum.database"

BANNER = "-" * 76 + "\nChecking Official VestRUM definitions\n" + "-" * 38 + "\nUpdate process started at DATE\n"
SCANNER_WARNING = (
    "Warning: the scanning engine /usr/local/vestRum/bin/clamscan is missing or may have been tampered with\n")
WIPE = "remove old DB files and freshclam log\n"

# The container.
LOCAL_1 = "Local version 1\nDownloading Defs version number\n"
UNKNOWN_VERSION = ("Failed to get available defs version number: ERROR\nAvailable version 0\n"
                   "VestRUM.cud file is up-to-date\n")
CONTAINER_CURRENT = ("Local version 3\nDownloading Defs version number\nversion number VestRUM:3\n"
                     "Available version 3\nVestRUM.cud file is up-to-date\n")
NEWER = ("Local version {local}\nDownloading Defs version number\nversion number VestRUM:{available}\n"
         "Available version {available}\ncurrentTempDir: /tmp/tarnwick-0/VestRUMdefs\n")
FROM_1_TO_3 = NEWER.format(local=1, available=3)
SCRIPTS = "Downloading VestRUM-2.script [ 50%]\nDownloading VestRUM-3.script [100%]\nProcessing updates…\n"
SCRIPT_FAILED = "Failed to download and verify VestRUM-{}.script\nProcessing updates…\n"
PATCHED = "DB integrity check is sound. Move VestRUM.cud into place\n"
BY_SCRIPTS = SCRIPTS + PATCHED
UNPACK_FAILED = "Couldn't unpack cud file\n"
REPACK_FAILED = "Repackage failed\n"
HEADER_FAILED = "Couldn't write header of new cud file\n"
NEED_FULL = "Need to download the full VestRUM.cud\n\n"
FULL_DOWNLOADED = "Downloading VestRUM.cud [100%]\n"
FULL_FAILED = "Failed to download and/or verify VestRUM.cud\n"
FULL_REJECTED = "VestRUM.cud DB integrity check failed. Deleting the newly downloaded file\n"
FULL_SOUND = "VestRUM.cud (version 3) DB integrity is sound. Moving into place.\n"
FULL_FETCHED = FULL_DOWNLOADED + FULL_SOUND
FULL_CONTAINER = NEED_FULL + FULL_FETCHED

# The definitions file.
DEFINITIONS_CURRENT = "Vestrum.database is already up to date.\n"
DEFINITIONS_ABSENT = "Nothing to download for Vestrum.database\n"
DEFINITIONS_UNREACHABLE = "Error occurred downloading Vestrum.database\n"
DEFINITIONS_DOWNLOADED = "Downloading Vestrum.database [100%]\n"
DEFINITIONS_INVALID = "Vestrum.database definitions file is not valid. Delete it.\n"
DEFINITIONS_NEW = (DEFINITIONS_DOWNLOADED + "Vestrum.database is valid and has file size: 108 bytes\n"
                   "DB integrity check is sound. Move Vestrum.database into place\n")

# The upstream databases, with a stand-in for freshclam that prints its arguments.
UPSTREAM_PHASE = "\nChecking ClamAV definitions\n"
FRESHCLAM_CALL = "freshclam --no-warnings\n"
FRESHCLAM_RUN = UPSTREAM_PHASE + FRESHCLAM_CALL

UP_TO_DATE_RUN = BANNER + CONTAINER_CURRENT + DEFINITIONS_CURRENT + FRESHCLAM_RUN

# The platform log.
DOWNLOAD_FAILED = "tarnwick: Download failed! ERROR\n"
REQUEST_FAILED = "tarnwick: Request failed! ERROR\n"
SIGNATURE_FAILED = "tarnwick: Download failed sig check\n"


def server_answered(status, host, path):
    return f"tarnwick: The server answered {status} for https://{host}{path}\n"
