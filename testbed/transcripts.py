"""What a run says, in pieces from which whole transcripts are put together."""

BANNER = "-" * 76 + "\nChecking Official VestRUM definitions\n" + "-" * 38 + "\nUpdate process started at DATE\n"
LOCAL = "Local version 1\nDownloading Defs version number\n"
NEWER = ("Local version {local}\nDownloading Defs version number\nversion number VestRUM:{available}\n"
         "Available version {available}\ncurrentTempDir: /tmp/tarnwick-0/VestRUMdefs\n")
CURRENT = ("Local version 3\nDownloading Defs version number\nversion number VestRUM:3\nAvailable version 3\n"
           "VestRUM.cud file is up-to-date\n")
SCRIPTS = "Downloading VestRUM-2.script [ 50%]\nDownloading VestRUM-3.script [100%]\nProcessing updates…\n"
SOUND = "DB integrity check is sound. Move VestRUM.cud into place\n"
FULL = "Need to download the full VestRUM.cud\n\n"
FETCHED = ("Downloading VestRUM.cud [100%]\nVestRUM.cud (version 3) DB integrity is sound. Moving into place.\n")
INSTALLED = ("Downloading Vestrum.database [100%]\nVestrum.database is valid and has file size: 108 bytes\n"
             "DB integrity check is sound. Move Vestrum.database into place\n")
UNCHANGED = "Vestrum.database is already up to date.\n"
FRESHCLAM = "\nChecking ClamAV definitions\nfreshclam --no-warnings\n"
WARNING = "Warning: the scanning engine /usr/local/vestRum/bin/clamscan is missing or may have been tampered with\n"
