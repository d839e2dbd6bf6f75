<?php foreach ($letters as $letter): ?>
<?= $letter['name'] ?>

<?= $letter['street'] ?>

<?= $letter['postcode'] ?> <?= $letter['city'] ?>


Order <?= $letter['number'] ?> of <?= $letter['date'] ?>


Dear <?= $letter['name'] ?>,

thank you for your order. It left our house today:

<?php foreach ($letter['items'] as $item): ?>
  <?= $item['count'] ?> x <?= $item['name'] ?>

<?php endforeach ?>

The total is <?= $letter['total'] ?> EUR.
<?php if ($letter['regular']): ?>
As a regular customer you pay no postage.
<?php else: ?>
Postage is included.
<?php endif ?>

Please keep this letter. If anything is missing or broken, write to
us within 14 days, and name order <?= $letter['number'] ?>.

We deliver to <?= $letter['city'] ?> on every working day.

Yours sincerely,

Hearth and Hook
Bryggen 7
Bergen

--
<?php endforeach ?>
