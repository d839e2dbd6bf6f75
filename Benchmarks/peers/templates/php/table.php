<table>
<?php foreach ($rows as $row): ?><tr><?php foreach ($row as $cell): ?><td><?= $cell ?></td><?php endforeach ?></tr>
<?php endforeach ?></table>
