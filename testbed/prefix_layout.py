"""The files and folders that provisioning creates in the prefix."""

from .world import PREFIX

PROVISION = "/repository/packaging/linux/provision"
LISTING = f"cd {PREFIX} && find . -exec stat -c '%N %A %U:%G' {{}} + | sort"
LAID_OUT = """\
'.' drwxr-xr-x root:root
'./bin' drwxr-xr-x root:root
'./bin/clamscan' -> '/usr/bin/clamscan' lrwxrwxrwx root:root
'./bin/freshclam' -rwxr-xr-x root:root
'./bin/sigtool' -rwxr-xr-x root:root
'./etc' drwxr-xr-x root:root
'./etc/freshclam.conf' -rw-r--r-- root:root
'./etc/freshclamBAK.conf' -rw-r--r-- root:root
'./etc/freshclamCLEAN.conf' -rw-r--r-- root:root
'./share' drwxr-xr-x root:root
'./share/clamav' drwxrwxr-x clamav:clamav
"""
