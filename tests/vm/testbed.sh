#!/bin/sh
# What a command finds inside the test bed (scripts/testbed): root, the
# caller's working directory, a /tmp with direct I/O, loopback, kernel modules
# on demand, loop devices, the disks, the environment passed in. Ends with
# status 3 when all is well, so the caller also sees the status come back.
. "$(dirname "$0")/checks.sh"
check "root" test "$(id -u)" = 0
check "the caller's working directory" test "$(pwd)" = "$1"
check "an ext4 /tmp" test "$(stat -f -c %T /tmp)" = ext2/ext3
check "direct I/O in /tmp" dd if=/dev/zero of=/tmp/testbed-direct bs=4096 count=16 oflag=direct
check "direct I/O in /var/tmp" dd if=/dev/zero of=/var/tmp/testbed-direct bs=4096 count=16 oflag=direct
check "loopback is up" sh -c 'ip -o addr show dev lo | grep -q "inet 127.0.0.1/"'
check "/dev/fd" test -e /dev/fd/1
check "modules on demand" modprobe veth
check "a loop device" losetup -f
check "the three disks" test -b "$QUOREL_SCSI_DEBUG" -a -b "$QUOREL_VIRTIO" -a -b "$QUOREL_AHCI"
check "the NVMe disk and its controller" test -b "$QUOREL_NVME" -a -c "$QUOREL_NVME_CONTROLLER"
check "the disks' images" test -f "$QUOREL_VIRTIO_IMAGE" -a -f "$QUOREL_AHCI_IMAGE" -a -f "$QUOREL_NVME_IMAGE"
check "variables from QUOREL_TESTBED_APPEND" test "$QUOREL_TESTBED_CHECK" = passed-in
echo "$failures failure(s)"
[ "$failures" = 0 ] && exit 3
exit 1
