#!/bin/sh
# The quorel tool on the test bed's disks: stat with READ CAPACITY, SCSI reads
# through the synchronous dispatcher (the READ size it picks or refuses, requests
# in pieces the device takes),
# direct asynchronous reads, UNMAP and TRIM, refused discards (misaligned, a mounted disk), the
# advice after refusals, and NVMe pass-through (with a deallocation refused while the namespace is
# mounted). Run by scripts/testbed with the tool's folder
# first on the PATH.
. "$(dirname "$0")/checks.sh"

disk=$QUOREL_SCSI_DEBUG
expect "stat reads the capacity" "RC(10)      67108864 bytes in blocks of 512" quorel stat "$disk"
expect "stat --json" '"sizeByRC10": 67108864' quorel stat "$disk" --json
expect "read --scsi --rw16" '"ios": 256' quorel read "$disk" --scsi --rw16 --bs 4K --size 1M --json
expect "read --scsi (10)" '"ios": 16' quorel read "$disk" --scsi --bs 64K --size 1M --json
expect "read --scsi picks READ(10) on a small disk" "SCSI READ(10)" quorel read "$disk" --scsi --bs 64K --size 1M
expect "read --scsi --rw10 --bs 64M in READ(10)s of 65535 blocks" '"ios": 1' \
  quorel read "$disk" --scsi --rw10 --bs 64M --json
# Requests larger than one command carries (AHCI: 128 KiB) go in pieces.
expect "read --scsi --bs 8M in pieces" '"ios": 8' quorel read "$QUOREL_AHCI" --scsi --bs 8M --json
expect "read --direct --random --depth 16" '"ios": 512' quorel read "$disk" --direct --random --depth 16 --size 2M --json
check "discard --unmap" quorel discard "$disk" --offset 1M --length 1M --unmap
expect "discard --satl" "discarded 64 KiB at 0" quorel discard "$QUOREL_AHCI" --offset 0 --length 64K --satl
expect "discard --trim" "by ATA TRIM in 512-byte blocks" quorel discard "$QUOREL_AHCI" --offset 64K --length 64K --trim
expect "a SCSI disk refuses ATA TRIM" "quorel: ATA TRIM" quorel discard "$disk" --offset 0 --length 4K --trim
expect "a misaligned discard" "multiples of the block size (512)" quorel discard "$disk" --offset 1 --length 4K --unmap
# A mounted disk is refused and left whole, unless --force.
mkfs.ext4 -q -F "$QUOREL_VIRTIO" && mkdir -p /tmp/quorel-mounted && mount "$QUOREL_VIRTIO" /tmp/quorel-mounted
expect "a mounted disk is refused" "is in use (mounted" quorel discard "$QUOREL_VIRTIO" --offset 0 --length 1M --unmap
check "the refused disk's file system is whole" dumpe2fs -h "$QUOREL_VIRTIO"
expect "--force discards a disk in use" "discarded 64 KiB" \
  quorel discard "$QUOREL_VIRTIO" --offset 60M --length 64K --unmap --force
umount /tmp/quorel-mounted
# Refusals the tool explains: the kernel's AIO limit, a missing capability, a node's permissions.
sysctl -q -w fs.aio-max-nr=64
expect "an AIO context past fs.aio-max-nr" "sysctl -w fs.aio-max-nr=" quorel read "$disk" --depth 128 --size 1M
sysctl -q -w fs.aio-max-nr=65536
expect "ATA PASS-THROUGH without CAP_SYS_RAWIO" "lacks CAP_SYS_RAWIO" \
  setpriv --bounding-set=-sys_rawio quorel discard "$QUOREL_AHCI" --offset 0 --length 4K --satl
expect "a node the user may not open" "does not let this user" \
  setpriv --reuid=65534 --regid=65534 --clear-groups quorel read "$disk" --scsi --bs 4K --size 4K

nvme=$QUOREL_NVME
expect "nvme id" "serial      quorel-nvme-0" quorel nvme id "$nvme"
expect "nvme id of the controller --json" '"model": "QEMU NVMe Ctrl"' quorel nvme id "$QUOREL_NVME_CONTROLLER" --json
expect "nvme smart" "power-on hours" quorel nvme smart "$nvme"
expect "stat gives the Identify size" "Identify    2147483648 bytes in blocks of 512" quorel stat "$nvme"
expect "nvme read of 8 MiB in one request" "read 8 MiB at 0 of $nvme by NVMe Read in 1 request of 8 MiB (at most 512 KiB per command)" \
  quorel nvme read "$nvme" --length 8M --bs 8M
expect "nvme discard" "deallocated 1 GiB at 0 of $nvme by NVMe Dataset Management in 512-byte blocks (1 command)" \
  quorel nvme discard "$nvme" --offset 0 --length 1G
mkdir -p /tmp/quorel-nvme-mount
check "a mounted file system on the NVMe disk" sh -c "mkfs.ext4 -q -F -E nodiscard $nvme && mount $nvme /tmp/quorel-nvme-mount"
expect "nvme discard refuses a mounted namespace" "'$nvme' is in use (mounted, or held open exclusively)" \
  quorel nvme discard "$nvme" --offset 1G --length 1M
expect "nvme discard --force" '"commands": 1' quorel nvme discard "$nvme" --offset 1G --length 1M --force --json
umount /tmp/quorel-nvme-mount
echo "$failures failure(s)"
[ "$failures" = 0 ]
